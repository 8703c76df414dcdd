#ifndef XPATH_STORE_EVALUATION_H
#define XPATH_STORE_EVALUATION_H

// Asking the document: XPath evaluation, the node sets kept during a set, and one owner for
// a context and its result. Internal: not installed.

#include <libxml/xpath.h>

#include <utility>
#include <vector>

#include "xstring.h"

class XMLLoaderImpl;

namespace xpath_store {

// xmlXPathEvalExpression, made safe where libxml2 2.9 is not (see evaluation.cpp).
xmlXPathObjectPtr evaluate(const xmlChar* path, xmlXPathContextPtr ctx);

inline unsigned int nodeCount(xmlXPathObjectPtr obj) {
    return obj && obj->nodesetval ? static_cast<unsigned int>(obj->nodesetval->nodeNr) : 0;
}

// Within one set the same question is often asked twice with nothing changed in between (a
// parent's count, then its nodes), and on a wide element each one scans all its children.
// While an Answers lives, node sets are kept from the first evaluation and handed out as
// copies, until the tree is about to change (forget) or the outermost Answers ends.
class Answers {
  public:
    Answers() { ++depth; }
    ~Answers() {
        if (--depth == 0) forget();
    }
    Answers(const Answers&) = delete;
    Answers& operator=(const Answers&) = delete;

    static xmlXPathObjectPtr find(xmlDocPtr doc, const XString& path);
    static void keep(xmlDocPtr doc, const XString& path, xmlXPathObjectPtr obj);
    // Before any change to the tree: the kept node sets may point to nodes about to go.
    static void forget();

  private:
    static inline int depth = 0;
    static inline xmlDocPtr of = nullptr;
    static inline std::vector<std::pair<XString, xmlXPathObjectPtr>> answers;
};

// countNodes, telling a failed evaluation (false) from one that selects nothing.
bool countOf(const XMLLoaderImpl& impl, const XString& path, unsigned int& count);

// One evaluation of a path on the loader's document: the context and the result, owned
// together and freed together whatever the way out.
class Evaluation {
  public:
    Evaluation(const XMLLoaderImpl& impl, const XString& path);
    ~Evaluation() { release(); }
    Evaluation(const Evaluation&) = delete;
    Evaluation& operator=(const Evaluation&) = delete;

    bool ok() const { return obj != nullptr; }
    unsigned int count() const { return nodeCount(obj); }
    // The node set; null unless ok() and the result is one.
    xmlNodeSetPtr nodes() const { return obj ? obj->nodesetval : nullptr; }
    // Frees both now, before the tree changes in ways the result must not see.
    void release();

  private:
    xmlXPathContextPtr ctx = nullptr;
    xmlXPathObjectPtr obj = nullptr;
};

}  // namespace xpath_store

#endif
