#include "conditions.h"

#include <libxml/xpathInternals.h>

#include <cstring>

namespace xpath_store {

namespace {

void quiet(void*, xmlErrorPtr) {}

// The name the tree gives a node whose prefix is bound to nothing: prefix:local.
std::string qualified(const xmlChar* prefix, const xmlChar* localname) {
    return std::string(reinterpret_cast<const char*>(prefix)) + ":" +
           reinterpret_cast<const char*>(localname);
}

}  // namespace

std::string attributeValue(const xmlChar* value, const xmlChar* end, bool decode) {
    std::string text(reinterpret_cast<const char*>(value), static_cast<std::size_t>(end - value));
    if (!decode || text.find('&') == std::string::npos) return text;
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text.compare(i, 5, "&#38;") == 0) {
            out += '&';
            i += 4;
        } else {
            out += text[i];
        }
    }
    return out;
}

// ---------------------------------------------------------------- the copy

xmlNsPtr Subtree::space(xmlNodePtr node, const xmlChar* prefix, const xmlChar* uri) {
    xmlNsPtr ns = xmlSearchNsByHref(doc, node, uri);
    if (ns == nullptr) ns = xmlNewNs(node, uri, prefix);
    if (ns == nullptr) failed = true;
    return ns;
}

void Subtree::add(xmlNodePtr child) {
    if (child) bytes += sizeof(xmlNode) + static_cast<std::size_t>(xmlStrlen(child->content));
    if (child == nullptr || xmlAddChild(current, child) == nullptr) {
        xmlFreeNode(child);
        failed = true;
    }
}

xmlNodePtr Subtree::open(const xmlChar* localname, const xmlChar* prefix, const xmlChar* uri,
                         int attributeCount, const xmlChar** attributes, bool decode) {
    if (doc == nullptr && (doc = xmlNewDoc(reinterpret_cast<const xmlChar*>("1.0"))) == nullptr) {
        failed = true;
        return nullptr;
    }
    const std::string name = prefix && !uri ? qualified(prefix, localname) : std::string();
    xmlNodePtr node = xmlNewDocNode(
        doc, nullptr, name.empty() ? localname : reinterpret_cast<const xmlChar*>(name.c_str()),
        nullptr);
    if (node == nullptr) {
        failed = true;
        return nullptr;
    }
    bytes += sizeof(xmlNode) + static_cast<std::size_t>(attributeCount) * 2 * sizeof(xmlNode);
    if (current == nullptr) {
        xmlDocSetRootElement(doc, node);
    } else {
        add(node);
    }
    current = node;
    if (uri) node->ns = space(node, prefix, uri);
    for (int i = 0; i < attributeCount; ++i) {
        const xmlChar** a = attributes + 5 * i;  // local name, prefix, URI, value, value end
        const std::string value = attributeValue(a[3], a[4], decode);
        const std::string full = a[1] && !a[2] ? qualified(a[1], a[0]) : std::string();
        xmlNsPtr ns = a[2] ? space(node, a[1], a[2]) : nullptr;
        if (xmlNewNsProp(node, ns,
                         full.empty() ? a[0] : reinterpret_cast<const xmlChar*>(full.c_str()),
                         reinterpret_cast<const xmlChar*>(value.c_str())) == nullptr)
            failed = true;
    }
    return node;
}

// The document stays for the next copy: only the copied element goes.
void Subtree::close() {
    if (current == nullptr) return;
    xmlNodePtr left = current;
    current = current->parent;
    if (current == nullptr || current->type == XML_DOCUMENT_NODE) {
        xmlUnlinkNode(left);
        xmlFreeNode(left);
        current = nullptr;
        bytes = 0;
    }
}

// Texts join as the tree builder joins them: a text after a text, CDATA after CDATA.
void Subtree::text(const xmlChar* data, int n, bool cdata) {
    if (current == nullptr) return;
    xmlNodePtr last = current->last;
    const xmlElementType type = cdata ? XML_CDATA_SECTION_NODE : XML_TEXT_NODE;
    if (last && last->type == type) {
        bytes += static_cast<std::size_t>(n);  // a long text comes in many pieces: each counts
        xmlNodeAddContentLen(last, data, n);
        return;
    }
    add(cdata ? xmlNewCDataBlock(doc, data, n) : xmlNewDocTextLen(doc, data, n));
}

void Subtree::comment(const xmlChar* value) {
    if (current) add(xmlNewDocComment(doc, value));
}

void Subtree::instruction(const xmlChar* target, const xmlChar* data) {
    if (current) add(xmlNewDocPI(doc, target, data));
}

// ---------------------------------------------------------------- predicates

// Compiled inside boolean(): what a predicate does with a value that is no number, and no
// path compiled as one of the library's streamed patterns, which read differently.
Predicate::Predicate(const std::string& expression) {
    context = xmlXPathNewContext(nullptr);
    if (context == nullptr) return;
    context->error = quiet;
    const std::string text = "boolean(" + expression + ")";
    compiled = xmlXPathCtxtCompile(context, reinterpret_cast<const xmlChar*>(text.c_str()));
}

Predicate::~Predicate() {
    xmlXPathFreeCompExpr(compiled);
    xmlXPathFreeContext(context);
}

int Predicate::holds(xmlNodePtr element) const {
    context->doc = element->doc;
    context->node = element;
    return xmlXPathCompiledEvalToBoolean(compiled, context);
}

}  // namespace xpath_store
