// floor_set <file> <xpath> <value>: the least a program can do for a set with libxml2. It
// sets up the library the way the store does, parses the file, evaluates the path once, and
// stores the value in the first node selected; when nothing is selected, it makes the last
// step (an element with the value as text, or an attribute for a step starting with '@')
// under the first node of the parent path, making missing parents the same way. Then it
// saves the file formatted in UTF-8. The benchmark compares the tool's set with it.

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "floor.h"

namespace {

const xmlChar* xml(const char* s) {
    return reinterpret_cast<const xmlChar*>(s);
}

// The first node that path selects, or null.
xmlNodePtr first(xmlXPathContextPtr ctx, const std::string& path) {
    xmlXPathObjectPtr obj = xmlXPathEvalExpression(xml(path.c_str()), ctx);
    xmlNodePtr node = nullptr;
    if (obj && obj->nodesetval && obj->nodesetval->nodeNr > 0) node = obj->nodesetval->nodeTab[0];
    xmlXPathFreeObject(obj);
    return node;
}

// The parent path and the last step of path ("/a/b/c" gives "/a/b" and "c").
bool split(const std::string& path, std::string& parent, std::string& last) {
    std::string::size_type slash = path.rfind('/');
    if (slash == std::string::npos || slash + 1 == path.size()) return false;
    parent = path.substr(0, slash);
    last = path.substr(slash + 1);
    return !parent.empty();
}

// The first element that path selects, made (with its missing parents) when there is none.
xmlNodePtr element(xmlXPathContextPtr ctx, const std::string& path) {
    if (xmlNodePtr node = first(ctx, path)) return node;
    std::string parent, last;
    if (!split(path, parent, last) || last[0] == '@') return nullptr;
    xmlNodePtr above = element(ctx, parent);
    return above ? xmlNewChild(above, nullptr, xml(last.c_str()), nullptr) : nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    floors::parse(argc, argv, "floor_set", 3, "<file> <xpath> <value>");
    xmlXPathContextPtr ctx = xmlXPathNewContext(floors::doc);
    if (ctx == nullptr) return 1;
    const std::string path = argv[2];
    const xmlChar* value = xml(argv[3]);
    bool stored = false;
    if (xmlNodePtr node = first(ctx, path)) {
        xmlNodeSetContent(node, value);
        stored = true;
    } else {
        std::string parent, last;
        xmlNodePtr above = split(path, parent, last) ? element(ctx, parent) : nullptr;
        if (above && last[0] == '@')
            stored = xmlNewProp(above, xml(last.c_str() + 1), value) != nullptr;
        else if (above)
            stored = xmlNewTextChild(above, nullptr, xml(last.c_str()), value) != nullptr;
    }
    xmlXPathFreeContext(ctx);
    if (!stored) {
        std::fprintf(stderr, "floor_set: cannot store a value at %s\n", argv[2]);
        return 1;
    }
    if (xmlSaveFormatFileEnc(argv[1], floors::doc, "UTF-8", 1) < 0) {
        std::fprintf(stderr, "floor_set: cannot save %s\n", argv[1]);
        return 1;
    }
    std::exit(0);
}
