// Any document and any expression through loadArray, getVector and writeValues. The input
// is the document, a NUL, then the expression (no NUL: the whole input is the document).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Input input(data, size);
    const std::string path = input.hasPath ? input.path : "//node()";

    XMLLoader loader;
    if (!loader.loadArray(input.document, input.size)) return 0;
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
