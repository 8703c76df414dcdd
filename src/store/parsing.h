#ifndef XPATH_STORE_PARSING_H
#define XPATH_STORE_PARSING_H

// Reading a document: the tree of the library's plain parse under the store's settings, built
// leaner, and refused when the parse ran out of memory. Internal: not installed.

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <memory>
#include <string>

namespace xpath_store {

// A file's bytes on their way to the library's parser. The file is opened here, its name taken
// as a path and nothing else (no URL, no "-" for standard input), and gzip or xz content comes
// out decompressed. Hand it over as the read callback and its context, for instance
// xmlReadIO(Source::read, nullptr, &source, name, nullptr, options); it closes the file.
class Source {
  public:
    // Opens file; when it can't be, opened() is false and the library's own warning is out.
    explicit Source(const std::string& file);
    ~Source();
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    bool opened() const { return fd >= 0; }
    // Known once the first bytes were read: true for gzip or xz content.
    bool compressed() const { return decoder != nullptr; }
    // True once a read failed: what the parser made of the bytes before is not the file.
    bool failed() const { return broken; }
    // The library's read callback: up to size bytes into buffer, 0 at the end, -1 on an error.
    static int read(void* source, char* buffer, int size);

  private:
    struct Decoder;
    int start();
    int readPlain(char* buffer, int size);
    bool fill();
    int next(char* buffer, int size);

    int fd;
    bool started = false, ended = false, broken = false;
    std::unique_ptr<unsigned char[]> in;  // bytes read ahead: the head, or compressed bytes
    std::size_t at = 0, end = 0;
    std::unique_ptr<Decoder> decoder;
};

// The reading options of the library under which its reading calls give what its plain parse
// gives under the process-wide settings.
int leanParseOptions();

// A parser over source's bytes as the library's reading calls make it, its diagnostics naming
// file; options are the caller's to set. Null when out of memory.
xmlParserCtxtPtr openParser(Source& source, const std::string& file);

// The document in file, or null when it doesn't parse whole.
xmlDocPtr readFile(const std::string& file);
// The document in the first size bytes of buffer, or null.
xmlDocPtr readMemory(const char* buffer, int size);

}  // namespace xpath_store

#endif
