#ifndef XPATH_STORE_SAVING_H
#define XPATH_STORE_SAVING_H

// Writing a document to its file, formatted and in UTF-8 (gzip-compressed when it was read
// so), so that a failure or a signal leaves the old file as it was, and success is on disk.
// Only a regular file, or none yet, is written. Knows nothing of XPath. Internal: not installed.

#include <libxml/tree.h>

#include <string>

namespace xpath_store {

bool saveDocument(xmlDocPtr doc, const std::string& file);

}  // namespace xpath_store

#endif
