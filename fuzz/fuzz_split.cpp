// splitPath and splitCondition on any bytes: no crash, no read outside the text, and the
// parts they return are the pieces of the path they came from.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // A std::string may bring NULs into an XString: no crash, no read outside the bytes.
    const char* bytes = reinterpret_cast<const char*>(data);
    {
        const XString raw(std::string(bytes, size));
        XString a, b, c;
        XMLLoaderImpl::splitPath(raw, a, b);
        XMLLoaderImpl::splitCondition(raw, a, b, c);
    }
    // The parts are checked on the text up to the first NUL, all that the XPath engine reads.
    const std::string text(bytes, strnlen(bytes, size));
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
