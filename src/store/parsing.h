#ifndef XPATH_STORE_PARSING_H
#define XPATH_STORE_PARSING_H

// Reading a document: the tree of the library's plain parse under the store's settings, built
// leaner, and refused when the parse ran out of memory. Internal: not installed.

#include <libxml/tree.h>

#include <string>

namespace xpath_store {

// The document in file, or null when it doesn't parse whole.
xmlDocPtr readFile(const std::string& file);
// The document in the first size bytes of buffer, or null.
xmlDocPtr readMemory(const char* buffer, int size);

}  // namespace xpath_store

#endif
