// splitPath and splitCondition on any bytes: no crash, no read outside the text, and the
// parts they return are the pieces of the path they came from.
#include <cstddef>
#include <cstdint>

#include "common.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::setUp();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Embedded NULs are kept: a std::string path reaches the store with them.
    const std::string text(reinterpret_cast<const char*>(data), size);
    const XString path(text);

    XString parent, node;
    if (XMLLoaderImpl::splitPath(path, parent, node)) {
        std::string joined = parent.stringValue("") + "/" + node.stringValue("");
        if (joined != text) fuzz::broken("splitPath: parent/node is not the path");
    } else if (text.find('/') != std::string::npos) {
        fuzz::broken("splitPath: a path with '/' not split");
    }

    XString before, name, value;
    if (XMLLoaderImpl::splitCondition(path, before, name, value)) {
        const std::string b = before.stringValue(""), n = name.stringValue(""),
                          v = value.stringValue("");
        if (text.compare(0, b.size(), b) != 0 || text[b.size()] != '[' || text.back() != ']')
            fuzz::broken("splitCondition: node path is not what stands before '['");
        const std::string condition = text.substr(b.size() + 1, text.size() - b.size() - 2);
        if (n.empty() || v.empty() || condition.find(n) == std::string::npos ||
            condition.find(v) == std::string::npos)
            fuzz::broken("splitCondition: name or value not inside the condition");
    }
    return 0;
}
