// Any document and any expression through loadArray, getVector and writeValues. The input
// is the document, a NUL, then the expression (no NUL: the whole input is the document).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::setUp();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const char* bytes = reinterpret_cast<const char*>(data);
    const char* nul = static_cast<const char*>(std::memchr(bytes, 0, size));
    const std::size_t docSize = nul ? static_cast<std::size_t>(nul - bytes) : size;
    const std::string path = nul ? std::string(nul + 1, bytes + size) : std::string("//node()");

    XMLLoader loader;
    if (!loader.loadArray(bytes, static_cast<unsigned int>(docSize))) return 0;
    std::vector<std::string> values(2, "stale");
    bool ok = loader.getVector(path, values);
    if (!ok && !values.empty()) fuzz::broken("getVector: false with values");
    std::vector<std::string> first(1);
    if (loader.getVector(path, first, 1) != ok || first.size() > 1 ||
        (!first.empty() && first[0] != values[0]))
        fuzz::broken("getVector: max 1 disagrees with the full read");
    char* text = nullptr;
    std::size_t length = 0;
    std::FILE* out = open_memstream(&text, &length);
    const bool written = loader.writeValues(path, out);
    std::fclose(out);
    std::string lines;
    for (const std::string& value : values)
        lines += value + "\n";
    const bool same = written == ok && std::string(text, length) == lines;
    std::free(text);
    if (!same) fuzz::broken("writeValues: not what getVector reads");
    return 0;
}
