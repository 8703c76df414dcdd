// floor_read <file> <xpath>: the least a program can do for a read with libxml2. It sets up
// the library the way the store does, parses the file, evaluates the expression once and
// exits: no values are built and nothing is printed. The benchmark compares the tool with it.

#include <libxml/xpath.h>

#include <cstdio>
#include <cstdlib>

#include "floor.h"

int main(int argc, char** argv) {
    floors::parse(argc, argv, "floor_read", 2, "<file> <xpath>");
    xmlXPathContextPtr ctx = xmlXPathNewContext(floors::doc);
    xmlXPathObjectPtr obj =
        ctx ? xmlXPathEvalExpression(reinterpret_cast<const xmlChar*>(argv[2]), ctx) : nullptr;
    int status = obj ? 0 : 1;
    if (obj == nullptr) std::fprintf(stderr, "floor_read: cannot evaluate %s\n", argv[2]);
    xmlXPathFreeObject(obj);
    xmlXPathFreeContext(ctx);
    std::exit(status);
}
