#ifndef XPATH_STORE_RULES_H
#define XPATH_STORE_RULES_H

// What the set side may write: names and text that parse again once saved. Pure functions of
// the bytes; they know nothing of documents. Internal: not installed.

#include <string>

#include "xstring.h"

namespace xpath_store {

// Well-formed UTF-8 made of characters that XML allows, short enough for the parser.
bool validText(const XString& text);
// An element's name or an attribute's local name: an XML name without a prefix.
bool validName(const XString& name);
// An attribute's name, which may carry the prefix xml that every document knows (xml:lang).
bool validAttributeName(const XString& name);
// A comment's text (no "--", no trailing '-') and a processing instruction's (no "?>").
bool validComment(const XString& text);
bool validInstruction(const XString& text);

// Content for xmlNodeSetContent, which reads references: character references and the
// predefined entities stay, any other '&' becomes literal text rather than a reference that
// could break the saved file or lose the value. False for text that validText refuses.
bool contentText(const XString& value, std::string& out);

}  // namespace xpath_store

#endif
