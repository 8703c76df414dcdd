// floor_read <file> <xpath>: the least a program can do for a read with libxml2. It sets up
// the library the way the store does, parses the file, evaluates the expression once and
// exits: no values are built and nothing is printed. The benchmark compares the tool with it.

#include <libxml/parser.h>
#include <libxml/xpath.h>

#include <cstdio>
#include <cstdlib>

namespace {
// Kept reachable to the end, like the tool's document: the process releases it at exit,
// and freeing a large tree first would add time that the tool doesn't spend.
xmlDocPtr doc = nullptr;
}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("Usage: floor_read <file> <xpath>\n", stderr);
        return 2;
    }
    xmlInitParser();
    LIBXML_TEST_VERSION
    xmlKeepBlanksDefault(0);
    *__xmlIndentTreeOutput() = 1;

    doc = xmlParseFile(argv[1]);
    if (doc == nullptr) {
        std::fprintf(stderr, "floor_read: cannot parse %s\n", argv[1]);
        return 1;
    }
    xmlXPathContextPtr ctx = xmlXPathNewContext(doc);
    xmlXPathObjectPtr obj =
        ctx ? xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(argv[2]), ctx) : nullptr;
    int status = obj ? 0 : 1;
    if (obj == nullptr) std::fprintf(stderr, "floor_read: cannot evaluate %s\n", argv[2]);
    xmlXPathFreeObject(obj);
    xmlXPathFreeContext(ctx);
    std::exit(status);
}
