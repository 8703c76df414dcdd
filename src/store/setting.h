#ifndef XPATH_STORE_SETTING_H
#define XPATH_STORE_SETTING_H

// The set algorithm's parts: one call of setOrCreateVector on one path (Set), and the making
// of a node that a path asks for (makeNode). setting.cpp fits the document to the path and
// its values; overwriting.cpp holds the rule of one value. Internal: not installed.

#include <libxml/parserInternals.h>

#include <vector>

#include "editing.h"
#include "trace.h"
#include "xmlloader.h"

namespace xpath_store {

// How a set of one path comes about.
enum class Pass {
    fit,    // the caller's values: overwrite, make, remove
    make,   // making a node the caller found missing: finding one there means an evaluation
            // failed without saying so (libxml2 does, out of memory), not a node to empty
    again,  // the second pass after the path's parent was made: it isn't made twice
};

// Nesting of set operations; paths deeper than any document the parser reads are refused
// before they can exhaust the stack.
struct SetDepth {
    SetDepth() { ++depth; }
    ~SetDepth() { --depth; }
    bool tooDeep() const { return depth > xmlParserMaxDepth + 8; }
    static inline unsigned int depth = 0;
};

// The values that take part, in order: those whose flag is true.
class Cursor {
  public:
    Cursor(const std::vector<XString>& values, const std::vector<bool>& flags)
        : values(values), flags(flags) {}
    const XString& take() {
        while (at < flags.size() && !flags[at])
            ++at;
        return at < values.size() ? values[at++] : none;
    }

  private:
    const std::vector<XString>& values;
    const std::vector<bool>& flags;
    std::size_t at = 0;
    const XString none;
};

// Makes the node that path asks for (createNode); made, when given, receives the element
// made for a trailing condition.
bool makeNode(XMLLoaderImpl& impl, const XString& path, Pass pass, xmlNodePtr* made = nullptr);

// A trailing condition's element and what it holds make a node that parses again.
bool validCondition(const XString& element, const XString& name, const XString& value);

// One call of setOrCreateVector on one path.
class Set {
  public:
    Set(XMLLoaderImpl& impl, const XString& path, const std::vector<XString>& values,
        const std::vector<bool>& flags)
        : log(XMLLoaderImpl::logger.getFunctor<Logger::Id>("setOrCreateVector")),
          impl(impl),
          path(path),
          values(values),
          flags(flags),
          cursor(values, flags) {}

    bool run(Pass pass);

  private:
    // The rule of one value, and what a trailing condition makes (overwriting.cpp).
    bool overwrite(xmlNodePtr node, const XString& name, const XString& value);
    void madeBeside(xmlNodePtr node, const XString& name, const XString& value);
    bool makeCondition(bool& go);

    bool makeMissing(Pass pass);
    bool makeRoot();
    bool write(xmlNodeSetPtr set, Overlaps& overlaps, unsigned int found);
    bool add(xmlNodeSetPtr parents, unsigned int found);
    bool remove(xmlNodeSetPtr set, Overlaps& overlaps, unsigned int found);
    bool noParent();

    Logger::Functor<Logger::Id> log;
    SetDepth depth;
    XMLLoaderImpl& impl;
    const XString& path;
    const std::vector<XString>& values;
    const std::vector<bool>& flags;
    Cursor cursor;
    XString parent, last;
    // For a trailing condition: the path of its element's parent, and the element's name.
    XString conditionParent, element;
    unsigned int wanted = 0;
    bool attribute = false, parentHasText = false;
};

}  // namespace xpath_store

#endif
