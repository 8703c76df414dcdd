#ifndef XPATH_STORE_EDITING_H
#define XPATH_STORE_EDITING_H

// Changing the tree: writing a value into a node, making elements and attributes, erasing the
// entries of a node set. Each refuses what would not parse again once saved, and each tells
// the kept answers (evaluation.h) that the tree is about to change. Internal: not installed.

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <utility>
#include <vector>

#include "xstring.h"

namespace xpath_store {

// Writes value into an existing node. False for a node that can't hold it.
bool writeValue(xmlNodePtr node, const XString& value);

// Stores value in an attribute that is there, in its place among the element's attributes.
bool setAttribute(xmlAttrPtr attr, const XString& value);

// A new element below parent (an element, or the document while it has no root), with value
// as its text when given. Null for an invalid name or value, or nesting past what the parser
// reads back.
xmlNodePtr addElement(xmlNodePtr parent, const XString& name, const XString* value);
// A new attribute on an element that doesn't have one of that name yet.
xmlAttrPtr addAttribute(xmlNodePtr parent, const XString& name, const XString& value);
// A new root element of a document that has none.
xmlNodePtr addRoot(xmlDocPtr doc, const XString& name);

// Depth of a node below the document: the root element is 1.
unsigned int depthOf(xmlNodePtr node);
bool isDocument(xmlNodePtr node);

// Entries of one node set that lie inside another entry's subtree. When an entry is
// removed, or its children replaced, the entries that went with it are cleared from the set
// at once, so that nothing touches a freed node: not the next step, not freeing the set.
class Overlaps {
  public:
    explicit Overlaps(xmlNodeSetPtr set);

    // Entry i is gone when it went with another entry.
    bool gone(int i) const { return !cleared.empty() && cleared[static_cast<std::size_t>(i)]; }
    // Entry i was removed (childrenOnly false) or had its children replaced.
    void destroyed(int i, bool childrenOnly);
    // Takes entry i out of the set without touching the tree.
    void clear(int i);

  private:
    xmlNodeSetPtr set;
    std::vector<std::vector<std::pair<int, bool>>> inside;
    std::vector<bool> cleared;
};

// The nodes made while one lives, so that they can be taken out again. Only the highest are
// kept (the rest lie in their subtrees), and one that goes with a change of the tree is
// dropped at once, so that nothing freed is ever touched. Recorders nest: each sees all.
class Made {
  public:
    Made() : outer(innermost) { innermost = this; }
    ~Made() { innermost = outer; }
    Made(const Made&) = delete;
    Made& operator=(const Made&) = delete;

    bool any() const { return !tops.empty(); }
    // Unlinks and frees every node made, the newest first.
    void undo();

    // From the editing functions: node was made; node goes, or only its children.
    static void added(xmlNodePtr node);
    static void going(xmlNodePtr node, bool childrenOnly);

  private:
    bool holds(xmlNodePtr node) const;

    Made* outer;
    std::vector<xmlNodePtr> tops;
    static inline Made* innermost = nullptr;
};

// Unlinks and frees entry i with its subtree. The document itself stays: it loses its
// top-level nodes instead. A namespace entry belongs to the set and stays in the tree.
void eraseEntry(xmlNodeSetPtr set, int i, Overlaps& overlaps);

}  // namespace xpath_store

#endif
