// Any document and any expression through loadArray, getVector and writeValues, and through
// streamValues on the document as a file, which must print what the tree prints. The input
// is the document, a NUL, then the expression (no NUL: the whole input is the document).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common.h"

namespace {

// What read printed, values and the library's diagnostics in the order a user sees them, and
// the outcome it names.
template <class Read>
std::string printed(Read read) {
    char* text = nullptr;
    std::size_t length = 0;
    std::FILE* out = open_memstream(&text, &length);
    xmlSetGenericErrorFunc(out, nullptr);  // the library's own handler, printing there
    const std::string outcome = read(out);
    xmlSetGenericErrorFunc(nullptr, fuzz::quiet);
    std::fclose(out);
    std::string all(text, length);
    std::free(text);
    return all + "|" + outcome;
}

// Where the stream takes the file, it must give what loading it and writing the values gives.
void streamAsTree(const fuzz::Input& input, const std::string& path) {
    {
        std::FILE* file = std::fopen(fuzz::scratchFile().c_str(), "wb");
        if (file == nullptr) return;
        std::fwrite(input.document, 1, input.size, file);
        std::fclose(file);
    }
    bool streamed = true;
    const std::string stream = printed([&](std::FILE* out) -> std::string {
        switch (XMLLoader(fuzz::scratchFile()).streamValues(path, out)) {
            case XMLLoader::STREAM_WRITTEN:
                return "values";
            case XMLLoader::STREAM_UNREADABLE:
                return "unreadable";
            case XMLLoader::STREAM_UNWRITABLE:
                return "unwritable";
            case XMLLoader::STREAM_UNSUPPORTED:
                break;
        }
        streamed = false;
        return "";
    });
    if (!streamed) {
        if (stream != "|") fuzz::broken("streamValues: printed, then handed over to the tree");
        return;
    }
    const std::string tree = printed([&](std::FILE* out) -> std::string {
        XMLLoader loader(fuzz::scratchFile());
        if (!loader.loadFile(false)) return "unreadable";
        return loader.writeValues(path, out) ? "values" : "bad xpath";
    });
    if (stream != tree) fuzz::broken("streamValues: not what the tree prints");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Input input(data, size);
    const std::string path = input.hasPath ? input.path : "//node()";

    XMLLoader loader;
    streamAsTree(input, path);
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
