#ifndef XPATH_TESTS_STORE_FIXTURE_H
#define XPATH_TESTS_STORE_FIXTURE_H

#include <cstring>
#include <string>
#include <vector>

#include "../common/table.h"
#include "xmlloader.h"

// A document from XML text (or an empty one for ""), and its root as compact text.
struct Doc {
    XMLLoaderImpl impl;
    explicit Doc(const char* xml) {
        impl.doc = *xml ? xmlParseMemory(xml, static_cast<int>(std::strlen(xml)))
                        : xmlNewDoc(reinterpret_cast<const xmlChar*>("1.0"));
    }
    std::string text() const {
        xmlNodePtr root = xmlDocGetRootElement(impl.doc);
        if (root == nullptr) return "";
        xmlBufferPtr buffer = xmlBufferCreate();
        xmlNodeDump(buffer, impl.doc, root, 0, 0);
        std::string out(reinterpret_cast<const char*>(xmlBufferContent(buffer)));
        xmlBufferFree(buffer);
        return out;
    }
};

inline std::vector<std::string> strings(const std::vector<XString>& values) {
    std::vector<std::string> out;
    for (const XString& v : values)
        out.push_back(v.stringValue(""));
    return out;
}

#endif
