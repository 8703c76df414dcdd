// Saving: a new file swapped in whole, or else the whole text first, then the space for it,
// and only then the old bytes.

#include "saving.h"

#include <fcntl.h>
#include <libxml/xmlsave.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "common.h"

namespace xpath_store {

namespace {

// The serialised document, gathered in one block that grows in place.
struct Text {
    char* data = nullptr;
    std::size_t size = 0, capacity = 0;
    bool failed = false;
    Text() = default;
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;
    ~Text() { std::free(data); }

    static int append(void* context, const char* bytes, int length) {
        Text& text = *static_cast<Text*>(context);
        std::size_t need = text.size + static_cast<std::size_t>(length);
        if (need > text.capacity) {
            std::size_t capacity = std::max(need, text.capacity ? text.capacity * 2 : 1 << 16);
            char* grown = static_cast<char*>(std::realloc(text.data, capacity));
            if (grown == nullptr) {
                text.failed = true;
                return -1;
            }
            text.data = grown;
            text.capacity = capacity;
        }
        std::memcpy(text.data + text.size, bytes, static_cast<std::size_t>(length));
        text.size = need;
        return length;
    }
};

// The same text as the library's formatted UTF-8 save to a file, handed to sink's append.
template <class Sink>
bool serialise(xmlDocPtr doc, Sink& sink) {
    xmlSaveCtxtPtr save =
        xmlSaveToIO(Sink::append, nullptr, &sink, "UTF-8", XML_SAVE_FORMAT | XML_SAVE_AS_XML);
    if (save == nullptr) return false;
    bool dumped = xmlSaveDoc(save, doc) >= 0;
    bool flushed = xmlSaveClose(save) >= 0;
    return dumped && flushed && !sink.failed && sink.size > 0;
}

// Writes all bytes at offset at, or in order from where the file stands for at < 0.
bool writeAll(int fd, const char* bytes, std::size_t size, off_t at) {
    while (size > 0) {
        ssize_t written = at < 0 ? write(fd, bytes, size) : pwrite(fd, bytes, size, at);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes += written;
        size -= static_cast<std::size_t>(written);
        if (at >= 0) at += written;
    }
    return true;
}

// Makes sure that size bytes fit in the file before any of its bytes change: within the
// process's file size limit, and with the blocks allocated. Where the file system can't
// allocate ahead, the file grows by zeros past its end, taken back if that fails.
bool reserve(int fd, off_t oldSize, std::size_t size) {
    struct rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
        size > limit.rlim_cur)
        return false;
    if (fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size)) == 0) return true;
    if (errno != EOPNOTSUPP && errno != ENOSYS) return false;
    if (static_cast<off_t>(size) <= oldSize) return true;
    std::vector<char> zeros(static_cast<std::size_t>(size) - static_cast<std::size_t>(oldSize));
    if (writeAll(fd, zeros.data(), zeros.size(), oldSize)) return true;
    int restored = ftruncate(fd, oldSize);  // nothing but the length had changed
    (void)restored;
    return false;
}

// The file that an open descriptor stands for, which differs from the name given when that
// name is a link.
std::string openedPath(int fd, const std::string& name) {
    char target[4096];
    std::string link = "/proc/self/fd/" + std::to_string(fd);
    ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
    return n > 0 ? std::string(target, static_cast<std::size_t>(n)) : name;
}

// Overwrites the file in place (same inode, same permissions), or makes it. A pipe or a
// device has no space to reserve: it is written in order.
bool writeInPlace(const std::string& file, const Text& text) {
    std::string made;
    int fd = open(file.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT) {
        fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);  // through a link too
        if (fd >= 0) made = openedPath(fd, file);
    }
    if (fd < 0) return false;
    struct stat info;
    bool ok = fstat(fd, &info) == 0;
    if (ok && S_ISREG(info.st_mode))
        ok = reserve(fd, info.st_size, text.size) && writeAll(fd, text.data, text.size, 0) &&
             ftruncate(fd, static_cast<off_t>(text.size)) == 0;
    else if (ok)
        ok = writeAll(fd, text.data, text.size, -1);
    ok = close(fd) == 0 && ok;
    if (!ok && !made.empty()) unlink(made.c_str());  // a file that wasn't there stays missing
    return ok;
}

// The serialised document on its way to a descriptor, in large writes, never past the
// process's file size limit (which would raise a signal rather than fail the write).
struct Stream {
    int fd;
    std::size_t size = 0, used = 0;
    rlim_t limit = RLIM_INFINITY;
    bool failed = false;
    char block[1 << 18];

    explicit Stream(int fd) : fd(fd) {
        struct rlimit fsize;
        if (getrlimit(RLIMIT_FSIZE, &fsize) == 0) limit = fsize.rlim_cur;
    }
    // A failure is only recorded: an error returned here would have the library print its own.
    static int append(void* context, const char* bytes, int length) {
        Stream& out = *static_cast<Stream*>(context);
        const std::size_t n = static_cast<std::size_t>(length);
        if (out.failed || out.overLimit(n)) return length;
        if (out.used + n > sizeof out.block && !out.flush()) return length;
        if (n > sizeof out.block) {
            out.failed = !writeAll(out.fd, bytes, n, -1);
        } else {
            std::memcpy(out.block + out.used, bytes, n);
            out.used += n;
        }
        out.size += n;
        return length;
    }
    bool overLimit(std::size_t n) {
        failed = limit != RLIM_INFINITY && size + n > limit;
        return failed;
    }
    bool flush() {
        if (used && !writeAll(fd, block, used, -1)) failed = true;
        used = 0;
        return !failed;
    }
};

// A new file beside the old one, renamed over it once whole: nothing of the text is held in
// memory, and the old file is untouched until the new one is complete. Only where the swap
// keeps all the old file had: one name, its owner and mode, no extended attributes (ACLs,
// labels), writable to this process. Elsewhere the caller writes in place.
enum class Swap { done, failed, unsuitable };
Swap swapIn(const std::string& file, xmlDocPtr doc) {
    char* resolved = realpath(file.c_str(), nullptr);  // a link stays a link to the new file
    if (resolved == nullptr) return Swap::unsuitable;
    const std::string target(resolved);
    std::free(resolved);
    struct stat old;
    if (stat(target.c_str(), &old) != 0 || !S_ISREG(old.st_mode) || old.st_nlink != 1 ||
        faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0 ||
        listxattr(target.c_str(), nullptr, 0) != 0)
        return Swap::unsuitable;
    const std::size_t slash = target.rfind('/');
    std::string temp = target.substr(0, slash + 1) + "." + target.substr(slash + 1) + ".XXXXXX";
    int fd = mkostemp(&temp[0], O_CLOEXEC);
    if (fd < 0) return Swap::unsuitable;
    struct stat made;
    bool same = fstat(fd, &made) == 0 &&
                ((made.st_uid == old.st_uid && made.st_gid == old.st_gid) ||
                 fchown(fd, old.st_uid, old.st_gid) == 0) &&
                fchmod(fd, old.st_mode & 07777) == 0 && flistxattr(fd, nullptr, 0) == 0;
    bool written = false;
    if (same) {
        std::unique_ptr<Stream> out(new (std::nothrow) Stream(fd));
        // Text cut short for want of memory is no document to put in the old one's place.
        written = out && serialise(doc, *out) && out->flush() && !MemoryWatch::ranOut();
    }
    written = close(fd) == 0 && written;
    if (same && written && rename(temp.c_str(), target.c_str()) == 0) return Swap::done;
    unlink(temp.c_str());
    return same ? Swap::failed : Swap::unsuitable;
}

}  // namespace

bool saveDocument(xmlDocPtr doc, const std::string& file) {
    // Left to the library's own save: a compressed file, written back compressed, and "-",
    // which the library reads and writes as the standard streams.
    int compression = doc->compression < 0 ? xmlGetCompressMode() : doc->compression;
    if (compression > 0 || file == "-")
        return xmlSaveFormatFileEnc(file.c_str(), doc, "UTF-8", 1) > 0;
    const Swap swapped = swapIn(file, doc);
    if (swapped != Swap::unsuitable) return swapped == Swap::done && !MemoryWatch::ranOut();
    Text text;
    return serialise(doc, text) && !MemoryWatch::ranOut() && writeInPlace(file, text);
}

}  // namespace xpath_store
