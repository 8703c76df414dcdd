#ifndef XPATH_STORE_READER_H
#define XPATH_STORE_READER_H

// What a streamed read does with each call of the parser: it matches the plan's steps as
// elements start, keeps what the tree would hold of the element being read (so that the
// parser drops blank text alike) and gathers the values of what is selected. Internal: not
// installed.

#include <libxml/parser.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "conditions.h"
#include "holding.h"
#include "streamable.h"

namespace xpath_store {

using Mask = std::uint64_t;
constexpr Mask bit(std::size_t k) {
    return Mask(1) << k;
}

// What the reader knows of one open element (depth 0: the document).
struct Level {
    Mask matched = 0;  // step k matched here: bit k (bit 0: the document)
    Mask within = 0;   // matched here or by an ancestor
    // Its children as the tree would hold them, which the parser asks about blank text.
    bool hasChildren = false, firstIsText = false;
    enum Kind : char { none, text, cdata, other } last = none;
    std::size_t textLength = 0;  // of the last text or CDATA child
    bool textsSelected = false;
    Ordered::Id slot = Ordered::none, textSlot = Ordered::none;  // its value, its text child's
    bool copied = false;  // in the subtree being built, as copy
    xmlNodePtr copy = nullptr;
    std::vector<unsigned long> counters;  // of its children, one per [n] and [last()]
    std::vector<Wait> candidates;         // the last child so far, one per [last()]
    std::vector<Waits> waits;             // per step matched: the decisions the match waits for
};

// A predicate to ask of an element's copy when the element ends.
struct Check {
    std::size_t depth;
    xmlNodePtr node;
    const Predicate* predicate;
    Wait decision;
};

// The start tag being read, as the parser hands it over.
struct Tag {
    const xmlChar *localname, *prefix, *uri;
    int count;
    const xmlChar** attributes;  // local name, prefix, URI, value, value end; count times
};

// One streamed read: follows the parser's calls, matches the plan's steps as elements start
// and gathers the values of what they select.
class Reader {
  public:
    Reader(const Plan& plan, xmlParserCtxtPtr ctxt, Ordered& output);
    bool compiled() const;

    void start(const xmlChar* localname, const xmlChar* prefix, const xmlChar* uri, int count,
               const xmlChar** attributes);
    void end();
    void characters(const xmlChar* bytes, int length, bool cdata);
    // A comment (no target) or a processing instruction.
    void leaf(const xmlChar* content, const xmlChar* target);
    // The tree holds something that this reader doesn't follow: the tree reads the file.
    void giveUp() {
        unsupported = true;
        xmlStopParser(ctxt);
    }

    bool unsupported = false, sawRoot = false;

  private:
    void child(Level& level, Level::Kind kind);
    void show(const Level& level);
    bool matches(std::size_t k, Level& parent, Level& me);
    xmlNodePtr copy();
    const char* attributeValue(const xmlChar* const* attribute, std::size_t& length);
    bool attribute(const xmlChar* name, const Condition& c);
    const Waits& waitsOf(const Level& level, std::size_t k) const {
        return waiting && k > 0 ? level.waits[k] : noWaits;
    }
    void hugeText();
    void keepLast(Level& level);
    void moveOn() {
        if (decided) output.decided();
        decided = false;
        // A copy that grows with the file: the tree does as well, and faster.
        if (subtree.size() > 16 << 20) giveUp();
    }

    const Plan& plan;
    xmlParserCtxtPtr ctxt;
    Ordered& output;
    const std::size_t n;
    const bool waiting, decode;
    const Step::Test selects;                        // what the last step selects
    const bool selectsBelow;                         // and whether by //
    Mask childContexts = 0, descendantContexts = 0;  // bit k-1 for element steps k
    Mask plain = 0;  // bit k: step k is its name alone, nothing to wait for
    // By step, then condition: names in the parser's dictionary, counters, predicates.
    std::vector<const xmlChar*> names;
    std::vector<std::vector<const xmlChar*>> conditionNames;
    std::vector<std::vector<int>> indexOf;
    std::vector<std::vector<std::unique_ptr<Predicate>>> predicates;
    std::size_t counterCount = 0, lastCount = 0;
    bool askAttributes = false;  // some condition on content reads attributes: copy them
    std::vector<Level> levels;
    std::size_t depth = 0;
    Tag tag{};
    std::string decoded;              // the last attribute value that needed decoding
    std::vector<Ordered::Id> values;  // the value slots of the selected elements open now
    Subtree subtree;
    std::vector<Check> checks, asked;
    const Waits noWaits;
    bool decided = false;  // a decision was taken since the output last moved on
    // What the parser is shown as the element being read: no more than it asks about.
    xmlNode shown{}, textChild{}, otherChild{};
};

// The parser drops blank text by the tree it believes it builds: show it what the tree holds.
inline void Reader::show(const Level& level) {
    shown.children = !level.hasChildren ? nullptr : level.firstIsText ? &textChild : &otherChild;
    shown.last = level.last == Level::none   ? nullptr
                 : level.last == Level::text ? &textChild
                                             : &otherChild;
}

// A new child of level, the element being read: the blank between children of a selected
// element, the end of a selected text before it.
inline void Reader::child(Level& level, Level::Kind kind) {
    if (level.slot != Ordered::none && level.hasChildren) output.add(level.slot, ' ');
    if (level.textSlot != Ordered::none) {
        output.close(level.textSlot);
        level.textSlot = Ordered::none;
    }
    xmlNode* shape = kind == Level::text ? &textChild : &otherChild;
    if (!level.hasChildren) {
        level.firstIsText = kind == Level::text;
        level.hasChildren = true;
        shown.children = shape;
    }
    level.last = kind;
    shown.last = shape;
}

}  // namespace xpath_store

#endif
