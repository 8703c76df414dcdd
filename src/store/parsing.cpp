#include "parsing.h"

#include <libxml/parser.h>

#include "common.h"

namespace xpath_store {

namespace {

// The options under which the library's reading calls build the same tree as its plain
// parse under the process-wide settings, with names shared in the document's dictionary and
// short texts kept inside their nodes: the same tree, built faster and smaller.
int leanParseOptions() {
    int options = XML_PARSE_COMPACT;
    if (!xmlKeepBlanksDefaultValue) options |= XML_PARSE_NOBLANKS;
    if (xmlSubstituteEntitiesDefaultValue) options |= XML_PARSE_NOENT;
    if (xmlLoadExtDtdDefaultValue & XML_DETECT_IDS) options |= XML_PARSE_DTDLOAD;
    if (xmlLoadExtDtdDefaultValue & XML_COMPLETE_ATTRS) options |= XML_PARSE_DTDATTR;
    if (xmlDoValidityCheckingDefaultValue) options |= XML_PARSE_DTDVALID;
    if (xmlPedanticParserDefaultValue) options |= XML_PARSE_PEDANTIC;
    return options;
}

// A parse that ran out of memory can end early and still hand back a document: refused.
xmlDocPtr whole(xmlDocPtr doc) {
    if (doc && (MemoryWatch::ranOut() || xmlDocGetRootElement(doc) == nullptr)) {
        xmlFreeDoc(doc);
        return nullptr;
    }
    return doc;
}

}  // namespace

// The plain parse of a file marks a compressed one for the strongest compression on save.
xmlDocPtr readFile(const std::string& file) {
    // A setting that no option expresses keeps the plain parse.
    if (xmlLoadExtDtdDefaultValue & ~(XML_DETECT_IDS | XML_COMPLETE_ATTRS))
        return whole(xmlParseFile(file.c_str()));
    xmlDocPtr doc = whole(xmlReadFile(file.c_str(), nullptr, leanParseOptions()));
    if (doc && doc->compression > 0) doc->compression = 9;
    return doc;
}

xmlDocPtr readMemory(const char* buffer, int size) {
    return whole(xmlReadMemory(buffer, size, nullptr, nullptr, leanParseOptions()));
}

}  // namespace xpath_store
