#include "parsing.h"

#include <fcntl.h>
#include <libxml/parser.h>
#include <lzma.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common.h"
#include "files.h"
#include "expansion.h"

namespace xpath_store {

namespace {

constexpr std::size_t blockSize = 1 << 16;

// In the words and on the channel of the library's own reading of a file.
void ioError(const char* what) {
    xmlGenericError(xmlGenericErrorContext, "I/O error : %s\n", what);
}

// A parse that ran out of memory can end early and still hand back a document: refused, as
// is one whose entities expand out of all proportion.
xmlDocPtr whole(xmlDocPtr doc) {
    if (doc &&
        (MemoryWatch::ranOut() || xmlDocGetRootElement(doc) == nullptr || !expansionBounded(doc))) {
        xmlFreeDoc(doc);
        return nullptr;
    }
    return doc;
}

// The library's plain parse, for a setting that no option expresses.
xmlDocPtr plainParse(Source& source, const std::string& file) {
    xmlParserCtxtPtr ctxt = openParser(source, file);
    if (ctxt == nullptr) return nullptr;
    xmlParseDocument(ctxt);
    xmlDocPtr doc = ctxt->myDoc;
    if (!ctxt->wellFormed) {
        xmlFreeDoc(doc);
        doc = nullptr;
    }
    ctxt->myDoc = nullptr;
    xmlFreeParserCtxt(ctxt);
    return doc;
}

}  // namespace

// The options under which the library's reading calls build the same tree as its plain
// parse under the process-wide settings, with names shared in the document's dictionary and
// short texts kept inside their nodes: the same tree, built faster and smaller.
int leanParseOptions() {
    int options = XML_PARSE_COMPACT;
    if (!xmlKeepBlanksDefaultValue) options |= XML_PARSE_NOBLANKS;
    if (xmlSubstituteEntitiesDefaultValue) options |= XML_PARSE_NOENT;
    if (xmlLoadExtDtdDefaultValue & XML_DETECT_IDS) options |= XML_PARSE_DTDLOAD;
    if (xmlLoadExtDtdDefaultValue & XML_COMPLETE_ATTRS) options |= XML_PARSE_DTDATTR;
    if (xmlDoValidityCheckingDefaultValue) options |= XML_PARSE_DTDVALID;
    if (xmlPedanticParserDefaultValue) options |= XML_PARSE_PEDANTIC;
    return options;
}

xmlParserCtxtPtr openParser(Source& source, const std::string& file) {
    xmlParserCtxtPtr ctxt = xmlCreateIOParserCtxt(nullptr, nullptr, Source::read, nullptr, &source,
                                                  XML_CHAR_ENCODING_NONE);
    if (ctxt && ctxt->input->filename == nullptr)  // the name its diagnostics give
        ctxt->input->filename = reinterpret_cast<char*>(xmlStrdup(xml(file.c_str())));
    return ctxt;
}

// ---------------------------------------------------------------- a file's bytes

struct Source::Decoder {
    bool gzip;
    z_stream z{};
    lzma_stream x = LZMA_STREAM_INIT;
    bool done = false;

    explicit Decoder(bool gzip) : gzip(gzip) {}
    bool init() {
        // The limit of the library's own xz reading.
        return gzip ? inflateInit2(&z, 16 + MAX_WBITS) == Z_OK
                    : lzma_auto_decoder(&x, 100000000, LZMA_CONCATENATED) == LZMA_OK;
    }
    ~Decoder() { gzip ? (void)inflateEnd(&z) : lzma_end(&x); }
};

Source::Source(const std::string& file) : fd(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY)) {
    if (fd < 0) {
        ioError(std::strerror(errno));
        xmlGenericError(xmlGenericErrorContext, "I/O warning : failed to load external entity \"%s\"\n",
                        file.c_str());
    }
}

Source::~Source() {
    if (fd >= 0) close(fd);
}

// More bytes into the read-ahead block, once it is used up; false on an error.
bool Source::fill() {
    if (at == end) at = end = 0;
    ssize_t n;
    do
        n = ::read(fd, in.get() + end, blockSize - end);
    while (n < 0 && errno == EINTR);
    if (n < 0) {
        ioError(std::strerror(errno));
        return false;
    }
    ended = n == 0;
    end += static_cast<std::size_t>(n);
    return true;
}

// Reads the head and tells plain bytes from gzip (1f 8b) and xz (fd 37 7a 58 5a 00).
int Source::start() {
    started = true;
    in.reset(new (std::nothrow) unsigned char[blockSize]);
    if (!in) return -1;
    while (end < 6 && !ended)
        if (!fill()) return -1;
    const unsigned char* head = in.get();
    bool gzip = end >= 2 && head[0] == 0x1f && head[1] == 0x8b;
    bool xz = xzMagic(head, end);
    if (gzip || xz) {
        decoder.reset(new (std::nothrow) Decoder(gzip));
        if (!decoder || !decoder->init()) return -1;
    }
    return 0;
}

int Source::readPlain(char* buffer, int size) {
    if (at == end && !ended && !fill()) return -1;
    std::size_t n = std::min(end - at, static_cast<std::size_t>(size));
    std::memcpy(buffer, in.get() + at, n);
    at += n;
    return static_cast<int>(n);
}

int Source::read(void* context, char* buffer, int size) {
    Source& source = *static_cast<Source*>(context);
    const int n = source.next(buffer, size);
    if (n < 0) source.broken = true;
    return n;
}

int Source::next(char* buffer, int size) {
    if (!started && start() < 0) return -1;
    if (!decoder) return readPlain(buffer, size);
    Decoder& d = *decoder;
    std::size_t made = 0;
    while (made == 0 && !d.done) {
        if (at == end && !ended && !fill()) return -1;
        const bool last = ended && at == end;
        std::size_t avail = end - at, room = static_cast<std::size_t>(size);
        bool ok;
        if (d.gzip) {
            d.z.next_in = in.get() + at;
            d.z.avail_in = static_cast<uInt>(avail);
            d.z.next_out = reinterpret_cast<Bytef*>(buffer);
            d.z.avail_out = static_cast<uInt>(room);
            int r = inflate(&d.z, Z_NO_FLUSH);
            avail = d.z.avail_in, room = d.z.avail_out;
            d.done = r == Z_STREAM_END;
            ok = r == Z_OK || d.done || (r == Z_BUF_ERROR && !last);
        } else {
            d.x.next_in = in.get() + at;
            d.x.avail_in = avail;
            d.x.next_out = reinterpret_cast<uint8_t*>(buffer);
            d.x.avail_out = room;
            lzma_ret r = lzma_code(&d.x, last ? LZMA_FINISH : LZMA_RUN);
            avail = d.x.avail_in, room = d.x.avail_out;
            d.done = r == LZMA_STREAM_END;
            ok = r == LZMA_OK || d.done;
        }
        at = end - avail;
        made = static_cast<std::size_t>(size) - room;
        if (!ok) {
            ioError(last ? "unexpected end of compressed data" : "compressed data damaged");
            return -1;
        }
        if (d.done && d.gzip) {  // another gzip member may follow; anything else is left unread
            if (at == end && !ended && !fill()) return -1;
            if (at < end && in[at] == 0x1f) {
                inflateReset(&d.z);
                d.done = false;
            }
        }
    }
    return static_cast<int>(made);
}

// ---------------------------------------------------------------- documents

xmlDocPtr readFile(const std::string& file) {
    Source source(file);
    if (!source.opened()) return nullptr;
    // A setting that no option expresses keeps the plain parse.
    xmlDocPtr doc = whole(xmlLoadExtDtdDefaultValue & ~(XML_DETECT_IDS | XML_COMPLETE_ATTRS)
                              ? plainParse(source, file)
                              : xmlReadIO(Source::read, nullptr, &source, file.c_str(), nullptr,
                                          leanParseOptions()));
    if (doc && source.failed()) {  // a document that ends well before a read error is not the file
        xmlFreeDoc(doc);
        return nullptr;
    }
    if (doc) doc->compression = source.compressed() ? 9 : 0;  // saved as the library saves it
    return doc;
}

xmlDocPtr readMemory(const char* buffer, int size) {
    return whole(xmlReadMemory(buffer, size, nullptr, nullptr, leanParseOptions()));
}

}  // namespace xpath_store
