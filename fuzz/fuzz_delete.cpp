// deletePath with any expression on any document (the document, a NUL, the expression),
// then a read of every node left and a save that is loaded again: nothing freed is touched.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Input input(data, size);
    if (!input.hasPath) return 0;
    const std::string& path = input.path;

    XMLLoader loader(fuzz::scratchFile());
    if (!loader.loadArray(input.document, input.size)) return 0;
    std::vector<std::string> before;
    const bool selects = loader.getVector(path, before);
    if (loader.deletePath(path) != (selects && before.size() == 1))
        fuzz::broken("deletePath: true but not exactly one node selected");
    std::vector<std::string> left;
    loader.getVector("//node()|//@*|//namespace::*", left);
    std::vector<std::string> roots;
    if (loader.getVector("/*", roots) && !roots.empty())
        if (fuzz::saveAndReload(loader) != fuzz::Saved::readsBack)
            fuzz::broken("the file saved after a delete doesn't parse");
    return 0;
}
