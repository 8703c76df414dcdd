#include "expansion.h"

#include <libxml/entities.h>
#include <libxml/hash.h>
#include <libxml/parserInternals.h>

#include <algorithm>
#include <cstdint>
#include <unordered_map>

namespace xpath_store {

namespace {

// The parser's own factor for the copies of entities against what it has read.
const std::uint64_t amplification = 10;

std::uint64_t plus(std::uint64_t a, std::uint64_t b) {
    const std::uint64_t most = UINT64_MAX / 2;
    return a >= most || b >= most - a ? most : a + b;
}

struct Tally {
    std::uint64_t own = 0;       // the bytes of the text as written, near enough
    std::uint64_t expanded = 0;  // what its references expand to
};

class Expansion {
  public:
    explicit Expansion(xmlDocPtr doc) : doc(doc) {}

    // The nodes from first on, their attributes and their subtrees, in one walk without
    // recursion; references are not followed but counted by what they expand to. The own
    // size is measured only when asked for: most documents never need it.
    void tally(xmlNodePtr first, Tally& into, bool own) {
        xmlNodePtr top = first ? first->parent : nullptr;
        for (xmlNodePtr node = first; node;) {
            count(node, into, own);
            if (node->type == XML_ELEMENT_NODE && node->children) {
                node = node->children;
                continue;
            }
            while (node && node->next == nullptr)
                node = node->parent == top ? nullptr : node->parent;
            if (node) node = node->next;
        }
    }

    // Whether a reference to one of the entities that dtd declares may expand to ten times
    // its own text: only then can a document pass the rule, and only then is it walked.
    bool mayAmplify(xmlDtdPtr dtd) {
        struct Scan {
            Expansion* expansion;
            bool found;
        } scan{this, false};
        if (dtd && dtd->entities)
            xmlHashScan(
                static_cast<xmlHashTablePtr>(dtd->entities),
                [](void* entity, void* data, const xmlChar* name) {
                    Scan* scan = static_cast<Scan*>(data);
                    scan->found =
                        scan->found || scan->expansion->of(static_cast<xmlEntityPtr>(entity)) >=
                                           amplification * (length(name) + 2);
                },
                &scan);
        return scan.found;
    }

  private:
    static std::uint64_t length(const xmlChar* text) {
        return static_cast<std::uint64_t>(xmlStrlen(text));
    }

    void count(xmlNodePtr node, Tally& into, bool own) {
        switch (node->type) {
            case XML_ELEMENT_NODE:
                if (own) into.own = plus(into.own, 2 * length(node->name) + 5);
                for (xmlAttrPtr attr = node->properties; attr; attr = attr->next) {
                    if (own) into.own = plus(into.own, length(attr->name) + 4);
                    tally(attr->children, into, own);
                }
                break;
            case XML_TEXT_NODE:
            case XML_CDATA_SECTION_NODE:
            case XML_COMMENT_NODE:
            case XML_PI_NODE:
                if (own) into.own = plus(into.own, length(node->content));
                break;
            case XML_ENTITY_REF_NODE:
                if (own) into.own = plus(into.own, length(node->name) + 2);
                into.expanded = plus(into.expanded, of(entityOf(node)));
                break;
            default:
                break;
        }
    }

    // A reference keeps its declaration where its children would be.
    xmlEntityPtr entityOf(xmlNodePtr reference) const {
        xmlNodePtr declaration = reference->children;
        return declaration && declaration->type == XML_ENTITY_DECL
                   ? reinterpret_cast<xmlEntityPtr>(declaration)
                   : xmlGetDocEntity(doc, reference->name);
    }

    // An entity's text with its own references expanded, counted once per entity.
    std::uint64_t of(xmlEntityPtr entity) {
        if (entity == nullptr) return 0;
        auto known = sizes.find(entity);
        if (known != sizes.end()) return known->second;
        sizes[entity] = 0;  // a loop, which the parser refuses anyway, adds nothing
        Tally inner;
        if (entity->children)
            tally(entity->children, inner, true);
        else
            inner.own = static_cast<std::uint64_t>(std::max(entity->length, 0));
        return sizes[entity] = plus(inner.own, inner.expanded);
    }

    xmlDocPtr doc;
    std::unordered_map<xmlEntityPtr, std::uint64_t> sizes;
};

// The declared entities' own text, which the parser reads as part of the document.
std::uint64_t declared(xmlDtdPtr dtd) {
    std::uint64_t size = 0;
    for (xmlNodePtr node = dtd ? dtd->children : nullptr; node; node = node->next)
        if (node->type == XML_ENTITY_DECL)
            size = plus(size, static_cast<std::uint64_t>(
                                  std::max(reinterpret_cast<xmlEntityPtr>(node)->length, 0)));
    return size;
}

}  // namespace

bool expansionBounded(xmlDocPtr doc) {
    Expansion expansion(doc);
    if (!expansion.mayAmplify(doc->intSubset) && !expansion.mayAmplify(doc->extSubset)) return true;
    Tally document;
    expansion.tally(doc->children, document, false);
    if (document.expanded < XML_MAX_TEXT_LENGTH) return true;
    document = Tally();
    expansion.tally(doc->children, document, true);
    document.own = plus(document.own, plus(declared(doc->intSubset), declared(doc->extSubset)));
    if (document.expanded < amplification * document.own) return true;
    xmlGenericError(xmlGenericErrorContext,
                    "%s: entity references expand to %llu bytes, ten times the document's own "
                    "%llu or more: not loaded\n",
                    doc->URL ? reinterpret_cast<const char*>(doc->URL) : "document",
                    static_cast<unsigned long long>(document.expanded),
                    static_cast<unsigned long long>(document.own));
    return false;
}

}  // namespace xpath_store
