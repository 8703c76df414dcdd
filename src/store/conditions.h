#ifndef XPATH_STORE_CONDITIONS_H
#define XPATH_STORE_CONDITIONS_H

// Predicates that look down from an element, for a streamed read: the element and what lies
// below it are copied into a small tree of their own while the document is read, and the
// predicate is asked of the copy once it is whole. Internal: not installed.

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <string>

namespace xpath_store {

// The copy of the element being read and of everything below it.
class Subtree {
  public:
    Subtree() = default;
    ~Subtree() { xmlFreeDoc(doc); }
    Subtree(const Subtree&) = delete;
    Subtree& operator=(const Subtree&) = delete;

    bool building() const { return current != nullptr; }
    // Copies an element in, with its attributes (values as the tree holds them): the root of
    // a new copy when none is being built. Null when memory ran out.
    xmlNodePtr open(const xmlChar* localname, const xmlChar* prefix, const xmlChar* uri,
                    int attributeCount, const xmlChar** attributes, bool decode);
    // Leaves the current element; leaving the root frees the copy.
    void close();
    void text(const xmlChar* data, int n, bool cdata);
    void comment(const xmlChar* value);
    void instruction(const xmlChar* target, const xmlChar* data);
    bool ok() const { return !failed; }
    // Near enough, the bytes the copy being built takes.
    std::size_t size() const { return bytes; }

  private:
    xmlNsPtr space(xmlNodePtr node, const xmlChar* prefix, const xmlChar* uri);
    void add(xmlNodePtr child);

    xmlDocPtr doc = nullptr;
    xmlNodePtr current = nullptr;
    std::size_t bytes = 0;
    bool failed = false;
};

// One predicate, compiled once without a word to standard error.
class Predicate {
  public:
    explicit Predicate(const std::string& expression);
    ~Predicate();
    Predicate(const Predicate&) = delete;
    Predicate& operator=(const Predicate&) = delete;

    bool ok() const { return compiled != nullptr; }
    // 1 when it holds with element as its context node, 0 when not, -1 when it failed.
    int holds(xmlNodePtr element) const;

  private:
    xmlXPathContextPtr context = nullptr;
    xmlXPathCompExprPtr compiled = nullptr;
};

// An attribute value as the parser hands it over, as the tree holds it: with entities kept,
// the parser writes & as &#38; for the tree builder to read again.
std::string attributeValue(const xmlChar* value, const xmlChar* end, bool decode);

}  // namespace xpath_store

#endif
