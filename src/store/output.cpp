#include "output.h"

#include <libxml/xmlsave.h>
#include <lzma.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "common.h"
#include "files.h"

namespace xpath_store {

struct Output::Deflate {
    z_stream z{};
    bool ready;
    unsigned char out[1 << 16];
    // As the library writes a compressed file: a gzip stream of zlib's default shape.
    explicit Deflate(int level)
        : ready(deflateInit2(&z, level, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY) ==
                Z_OK) {}
    ~Deflate() {
        if (ready) deflateEnd(&z);
    }
};

// As the xz tool writes by default, so that a file comes back in the form it had.
struct Output::Xz {
    lzma_stream s = LZMA_STREAM_INIT;
    bool ready;
    unsigned char out[1 << 16];
    Xz() : ready(lzma_easy_encoder(&s, LZMA_PRESET_DEFAULT, LZMA_CHECK_CRC64) == LZMA_OK) {}
    ~Xz() { lzma_end(&s); }
};

Output::Output(int fd, Packing packing) : fd(fd) {
    struct rlimit fsize;
    if (getrlimit(RLIMIT_FSIZE, &fsize) == 0) limit = fsize.rlim_cur;
    if (fd >= 0) {
        capacity = 1 << 18;
        block = static_cast<char*>(std::malloc(capacity));
        failed = block == nullptr;
    }
    if (packing.xz) {
        xz.reset(new (std::nothrow) Xz());
        failed = failed || !xz || !xz->ready;
    } else if (packing.level > 0) {
        deflate.reset(new (std::nothrow) Deflate(packing.level));
        failed = failed || !deflate || !deflate->ready;
    }
}

Output::~Output() {
    std::free(block);
}

// A failure is only recorded: an error returned here would have the library print its own.
int Output::append(void* context, const char* bytes, int length) {
    Output& out = *static_cast<Output*>(context);
    const std::size_t n = static_cast<std::size_t>(length);
    if (out.xz)
        out.compressXz(bytes, n, false);
    else if (out.deflate)
        out.compress(bytes, n, false);
    else
        out.put(bytes, n);
    return length;
}

bool Output::compress(const char* bytes, std::size_t size, bool last) {
    z_stream& z = deflate->z;
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes));
    z.avail_in = static_cast<uInt>(size);
    int result;
    do {
        z.next_out = deflate->out;
        z.avail_out = sizeof deflate->out;
        result = ::deflate(&z, last ? Z_FINISH : Z_NO_FLUSH);
        put(reinterpret_cast<char*>(deflate->out), sizeof deflate->out - z.avail_out);
    } while (z.avail_out == 0 && !failed);
    if (result == Z_STREAM_ERROR || (last && result != Z_STREAM_END)) failed = true;
    return !failed;
}

bool Output::compressXz(const char* bytes, std::size_t size, bool last) {
    lzma_stream& s = xz->s;
    s.next_in = reinterpret_cast<const uint8_t*>(bytes);
    s.avail_in = size;
    lzma_ret result;
    do {
        s.next_out = xz->out;
        s.avail_out = sizeof xz->out;
        result = lzma_code(&s, last ? LZMA_FINISH : LZMA_RUN);
        put(reinterpret_cast<char*>(xz->out), sizeof xz->out - s.avail_out);
    } while (!failed && result == LZMA_OK && (s.avail_out == 0 || last));
    if (result != (last ? LZMA_STREAM_END : LZMA_OK)) failed = true;
    return !failed;
}

// Never past the process's file size limit, which would raise a signal rather than fail.
void Output::put(const char* bytes, std::size_t size) {
    if (failed || size == 0) return;
    if (limit != RLIM_INFINITY && total + size > limit) {
        failed = true;
        return;
    }
    total += size;
    if (fd >= 0) {
        if (used + size > capacity && !flush()) return;
        if (size > capacity) {
            failed = !writeAll(fd, bytes, size, -1);
            return;
        }
    } else if (used + size > capacity) {
        const std::size_t grown = std::max(used + size, capacity ? capacity * 2 : 1 << 16);
        char* more = static_cast<char*>(std::realloc(block, grown));
        if (more == nullptr) {
            failed = true;
            return;
        }
        block = more;
        capacity = grown;
    }
    std::memcpy(block + used, bytes, size);
    used += size;
}

bool Output::flush() {
    if (fd < 0 || failed) return !failed;
    failed = used > 0 && !writeAll(fd, block, used, -1);
    used = 0;
    return !failed;
}

bool Output::write(xmlDocPtr doc) {
    xmlSaveCtxtPtr save =
        xmlSaveToIO(append, nullptr, this, "UTF-8", XML_SAVE_FORMAT | XML_SAVE_AS_XML);
    if (save == nullptr) return false;
    const bool dumped = xmlSaveDoc(save, doc) >= 0;
    const bool closed = xmlSaveClose(save) >= 0;
    if (xz && !failed) compressXz(nullptr, 0, true);
    if (deflate && !failed) compress(nullptr, 0, true);
    // Text cut short for want of memory is no document to put in the old one's place.
    return dumped && closed && flush() && total > 0 && !MemoryWatch::ranOut();
}

}  // namespace xpath_store
