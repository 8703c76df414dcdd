#include "evaluation.h"

#include <libxml/xpathInternals.h>

#include <cctype>
#include <string>

#include "common.h"
#include "xmlloader.h"

namespace xpath_store {

namespace {

// libxml2 answers a path such as /a/b/c by streaming over every node down to the path's
// depth, whatever the names on the way, and answers nothing, without an error, when it can't
// allocate the stream. In parentheses the same path is evaluated step by step: the same
// nodes, only the matching ones followed. Only plain child steps are rewritten (/name or /*
// in ASCII), where both forms are the same expression to the engine: a path with // costs far
// more step by step, and the stream accepts texts that the engine refuses.
bool plainChildSteps(const xmlChar* path) {
    if (*path != '/') return false;
    for (const xmlChar* step = path; *step == '/';) {
        const xmlChar* c = step + 1;
        if (*c == '*') {
            ++c;
        } else {
            if (!std::isalpha(*c) && *c != '_') return false;
            while (std::isalnum(*c) || *c == '_' || *c == '-' || *c == '.')
                ++c;
        }
        if (*c != '/' && *c != 0) return false;
        step = c;
    }
    return true;
}

// A node set's own copy. (xmlXPathObjectCopy loses memory when an allocation fails.)
xmlXPathObjectPtr copyOf(xmlXPathObjectPtr obj) {
    xmlXPathObjectPtr copy = xmlXPathNewNodeSet(nullptr);
    xmlNodeSetPtr from = obj->nodesetval;
    for (int i = 0; copy && from && i < from->nodeNr; ++i) {
        if (xmlXPathNodeSetAddUnique(copy->nodesetval, from->nodeTab[i]) < 0) {
            xmlXPathFreeObject(copy);
            copy = nullptr;
        }
    }
    return copy;
}

}  // namespace

// The value stack is made up front: libxml2 2.9 frees its context and writes through a null
// stack when it fails to make the stack itself.
xmlXPathObjectPtr evaluate(const xmlChar* path, xmlXPathContextPtr ctx) {
    std::string stepwise;
    if (plainChildSteps(path)) {
        stepwise = "(" + std::string(reinterpret_cast<const char*>(path)) + ")";
        path = xml(stepwise.c_str());
    }
    xmlXPathParserContextPtr parser = xmlXPathNewParserContext(path, ctx);
    if (parser == nullptr) return nullptr;
    xmlXPathObjectPtr result = nullptr;
    const int slots = 10;
    parser->valueTab =
        static_cast<xmlXPathObjectPtr*>(xmlMalloc(slots * sizeof(xmlXPathObjectPtr)));
    if (parser->valueTab != nullptr) {
        parser->valueMax = slots;
        xmlXPathEvalExpr(parser);
        if (parser->error == XPATH_EXPRESSION_OK) result = valuePop(parser);
    }
    xmlXPathFreeParserContext(parser);
    return result;
}

xmlXPathObjectPtr Answers::find(xmlDocPtr doc, const XString& path) {
    if (depth == 0 || doc != of) return nullptr;
    for (const auto& kept : answers)
        if (kept.first == path) return copyOf(kept.second);
    return nullptr;
}

void Answers::keep(xmlDocPtr doc, const XString& path, xmlXPathObjectPtr obj) {
    if (depth == 0 || obj->type != XPATH_NODESET) return;
    if (doc != of) forget();
    of = doc;
    if (xmlXPathObjectPtr copy = copyOf(obj)) answers.emplace_back(path, copy);
}

void Answers::forget() {
    for (const auto& kept : answers)
        xmlXPathFreeObject(kept.second);
    answers.clear();
}

// After a failed evaluation both stay null: there is nothing to free.
Evaluation::Evaluation(const XMLLoaderImpl& impl, const XString& path) {
    impl.evalToContextAndObj(path, ctx, obj);
}

void Evaluation::release() {
    xmlXPathFreeObject(obj);
    xmlXPathFreeContext(ctx);
    obj = nullptr;
    ctx = nullptr;
}

}  // namespace xpath_store

using xpath_store::Answers;
using xpath_store::MemoryWatch;

bool XMLLoaderImpl::evalToContextAndObj(const XString& path, xmlXPathContextPtr& ctx,
                                        xmlXPathObjectPtr& obj) const {
    auto log = logger.getFunctor<Logger::Id>("evalToContextAndObj");
    obj = nullptr;
    if (ctx == nullptr) {
        ctx = xmlXPathNewContext(doc);
        if (ctx == nullptr) {
            log(LOG_ERROR, "Could not create xpath context");
            return false;
        }
    }
    MemoryWatch watch;
    obj = Answers::find(doc, path);
    if (obj == nullptr) {
        obj = xpath_store::evaluate(path, ctx);
        if (obj != nullptr && !watch.ok(true)) {  // a node set that may lack nodes
            xmlXPathFreeObject(obj);
            obj = nullptr;
        }
        if (obj != nullptr) Answers::keep(doc, path, obj);
    }
    if (obj == nullptr) {
        XLOG(log, LOG_ERROR, "Failed to evaluate expression " + xpath_store::str(path));
        xmlXPathFreeContext(ctx);
        ctx = nullptr;
        return false;
    }
    return true;
}

bool xpath_store::countOf(const XMLLoaderImpl& impl, const XString& path, unsigned int& count) {
    auto log = XMLLoaderImpl::logger.getFunctor<Logger::Id>("countNodes");
    MemoryWatch watch;
    XLOG(log, LOG_TRACE, "Counting: " + str(path));
    Evaluation found(impl, path);
    const bool ok = watch.ok(found.ok());
    count = ok ? found.count() : 0;
    return ok;
}

unsigned int XMLLoaderImpl::countNodes(const XString& path) const {
    unsigned int count = 0;
    xpath_store::countOf(*this, path, count);
    return count;
}
