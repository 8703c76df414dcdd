#ifndef XPATH_STORE_OUTPUT_H
#define XPATH_STORE_OUTPUT_H

// A document serialised as the library saves it to a file (formatted UTF-8), gzip- or
// xz-compressed when asked, on its way to a descriptor or into memory. Internal: not installed.

#include <libxml/tree.h>
#include <sys/resource.h>

#include <cstddef>
#include <memory>

namespace xpath_store {

// How the saved bytes are packed: gzip at level when level > 0, xz when xz is set.
struct Packing {
    int level = 0;
    bool xz = false;
};

class Output {
  public:
    // To fd in large writes, or into memory for fd < 0.
    Output(int fd, Packing packing);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    // The whole document, flushed; false on any failure: memory, space, the file size limit.
    bool write(xmlDocPtr doc);
    // What went into memory.
    const char* data() const { return block; }
    std::size_t size() const { return total; }

  private:
    struct Deflate;
    struct Xz;
    static int append(void* output, const char* bytes, int length);
    bool compress(const char* bytes, std::size_t size, bool last);
    bool compressXz(const char* bytes, std::size_t size, bool last);
    void put(const char* bytes, std::size_t size);
    bool flush();

    int fd;
    std::unique_ptr<Deflate> deflate;
    std::unique_ptr<Xz> xz;
    char* block = nullptr;  // the bytes waiting for fd, or all of them
    std::size_t used = 0, capacity = 0, total = 0;
    rlim_t limit = RLIM_INFINITY;
    bool failed = false;
};

}  // namespace xpath_store

#endif
