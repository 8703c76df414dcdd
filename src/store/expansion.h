#ifndef XPATH_STORE_EXPANSION_H
#define XPATH_STORE_EXPANSION_H

// Entity references are expanded wherever a value is read: on output, and while setting. A
// document whose references expand far past its own size is refused when it is loaded, by
// the rule the parser applies to the copies it makes when it substitutes entities itself.
// Internal: not installed.

#include <libxml/tree.h>

namespace xpath_store {

// False, with a line on libxml2's error channel, for a document whose references expand to
// 10 MB or more and to ten times its own size or more.
bool expansionBounded(xmlDocPtr doc);

}  // namespace xpath_store

#endif
