#ifndef XPATH_BENCH_FLOOR_H
#define XPATH_BENCH_FLOOR_H

// What the floors do first: check the arguments, set libxml2 up the way the store does and
// (the tree's floors) parse the file with the plain call. Exits with a message on the way
// when any of it fails.

#include <libxml/parser.h>

#include <cstdio>
#include <cstdlib>

namespace floors {

// Kept reachable to the end, like the tool's document: the process releases it at exit, and
// freeing a large tree first would add time that the tool doesn't spend.
inline xmlDocPtr doc = nullptr;

// wanted: the number of arguments after the program's name, shown in usage.
inline void setUp(int argc, const char* name, int wanted, const char* usage) {
    if (argc != wanted + 1) {
        std::fprintf(stderr, "Usage: %s %s\n", name, usage);
        std::exit(2);
    }
    xmlInitParser();
    LIBXML_TEST_VERSION
    xmlKeepBlanksDefault(0);
    *__xmlIndentTreeOutput() = 1;
}

inline void parse(int argc, char** argv, const char* name, int wanted, const char* usage) {
    setUp(argc, name, wanted, usage);
    doc = xmlParseFile(argv[1]);
    if (doc == nullptr) {
        std::fprintf(stderr, "%s: cannot parse %s\n", name, argv[1]);
        std::exit(1);
    }
}

}  // namespace floors

#endif
