#ifndef XPATH_FUZZ_COMMON_H
#define XPATH_FUZZ_COMMON_H

// What the fuzz targets share: quiet libxml2, a store that stays started, and the check that
// a saved document reads back the way the tool reads a file.

#include <libxml/parser.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
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

// Called once from LLVMFuzzerInitialize. A loader kept for the whole run holds the library
// started, so that no input pays for libxml2's start and stop.
inline void setUp() {
    static XMLLoader keeper;
    xmlSetGenericErrorFunc(nullptr, quiet);
}

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
