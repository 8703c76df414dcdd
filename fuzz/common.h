#ifndef XPATH_FUZZ_COMMON_H
#define XPATH_FUZZ_COMMON_H

// What the fuzz targets share: quiet libxml2, a store that stays started, and the check that
// a saved document reads back the way the tool reads a file.

#include <libxml/parser.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "xmlloader.h"

namespace fuzz {

inline void quiet(void*, const char*, ...) {}

// What the target is running, for the report of a broken invariant.
inline std::string& current() {
    static std::string text;
    return text;
}

// Stops a failed invariant where the fuzzer sees it, with a line saying which.
[[noreturn]] inline void broken(const char* what) {
    std::fprintf(stderr, "INVARIANT BROKEN: %s\n%s\n", what, current().c_str());
    std::abort();
}

// An input read as a document, a NUL, then an expression; with no NUL it is all document.
struct Input {
    const char* document;
    unsigned int size;
    bool hasPath;
    std::string path;
    Input(const std::uint8_t* data, std::size_t length)
        : document(reinterpret_cast<const char*>(data)) {
        const char* nul = static_cast<const char*>(std::memchr(document, 0, length));
        hasPath = nul != nullptr;
        size = static_cast<unsigned int>(hasPath ? nul - document : length);
        if (hasPath) path.assign(nul + 1, document + length);
    }
};

// A scratch file of this process, removed at exit.
inline const std::string& scratchFile() {
    static const std::string path = [] {
        const char* dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        return std::string(dir) + "/xpath-fuzz-" + std::to_string(getpid()) + ".xml";
    }();
    static const bool registered = std::atexit([] { unlink(scratchFile().c_str()); }) == 0;
    (void)registered;
    return path;
}

enum class Saved { refused, readsBack, unreadable };

// Saves loader (made on scratchFile()) and loads the file again as the tool does, reading
// every node of it.
inline Saved saveAndReload(const XMLLoader& loader) {
    if (!loader.saveFile()) return Saved::refused;
    XMLLoader again(scratchFile());
    if (!again.loadFile(false)) return Saved::unreadable;
    std::vector<std::string> values;
    again.getVector("//node()|//@*", values);
    return Saved::readsBack;
}

}  // namespace fuzz

#endif
