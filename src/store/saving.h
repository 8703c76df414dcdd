#ifndef XPATH_STORE_SAVING_H
#define XPATH_STORE_SAVING_H

// Writing a document to its file, formatted and in UTF-8, so that a failure leaves the old
// file as it was. Knows nothing of XPath. Internal: not installed.

#include <libxml/tree.h>

#include <string>

namespace xpath_store {

bool saveDocument(xmlDocPtr doc, const std::string& file);

}  // namespace xpath_store

#endif
