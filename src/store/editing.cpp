#include "editing.h"

#include <libxml/parserInternals.h>
#include <libxml/xpathInternals.h>

#include <algorithm>
#include <string>
#include <unordered_map>

#include "common.h"
#include "evaluation.h"
#include "rules.h"

namespace xpath_store {

namespace {

// The node that a node set entry hangs from: a namespace entry made for the namespace axis
// keeps its element in 'next'.
xmlNodePtr holderOf(xmlNodePtr entry) {
    if (entry->type != XML_NAMESPACE_DECL) return entry->parent;
    xmlNodePtr next = reinterpret_cast<xmlNodePtr>(reinterpret_cast<xmlNsPtr>(entry)->next);
    return next && next->type != XML_NAMESPACE_DECL ? next : nullptr;
}

}  // namespace

bool writeValue(xmlNodePtr node, const XString& value) {
    Answers::forget();
    switch (node->type) {
        case XML_ELEMENT_NODE:
        case XML_ATTRIBUTE_NODE: {
            std::string text;
            if (!contentText(value, text)) return false;
            Made::going(node, true);
            xmlNodeSetContent(node, xml(text.c_str()));
            return true;
        }
        case XML_COMMENT_NODE:
            if (!validComment(value)) return false;
            break;
        case XML_PI_NODE:
            if (!validInstruction(value)) return false;
            break;
        case XML_TEXT_NODE:
        case XML_CDATA_SECTION_NODE:
            if (!validText(value)) return false;
            break;
        default:  // the document, a namespace, ...: nothing that a value could be stored in
            return false;
    }
    xmlNodeSetContent(node, value);
    return true;
}

bool setAttribute(xmlAttrPtr attr, const XString& value) {
    Answers::forget();
    return validText(value) && xmlSetNsProp(attr->parent, attr->ns, attr->name, value);
}

unsigned int depthOf(xmlNodePtr node) {
    unsigned int depth = 0;
    for (; node && !isDocument(node); node = node->parent)
        ++depth;
    return depth;
}

bool isDocument(xmlNodePtr node) {
    return node->type == XML_DOCUMENT_NODE || node->type == XML_HTML_DOCUMENT_NODE;
}

xmlNodePtr addElement(xmlNodePtr parent, const XString& name, const XString* value) {
    Answers::forget();
    if (parent == nullptr || !validName(name) || (value && !validText(*value))) return nullptr;
    if (parent->type == XML_DOCUMENT_NODE) {
        if (xmlDocGetRootElement(reinterpret_cast<xmlDocPtr>(parent))) return nullptr;
    } else if (parent->type != XML_ELEMENT_NODE || depthOf(parent) > xmlParserMaxDepth) {
        return nullptr;
    }
    xmlNodePtr made = value ? xmlNewTextChild(parent, nullptr, name, *value)
                            : xmlNewChild(parent, nullptr, name, nullptr);
    Made::added(made);
    return made;
}

xmlAttrPtr addAttribute(xmlNodePtr parent, const XString& name, const XString& value) {
    Answers::forget();
    if (parent == nullptr || parent->type != XML_ELEMENT_NODE || !validAttributeName(name) ||
        !validText(value))
        return nullptr;
    xmlNsPtr ns = nullptr;
    XString local = name;
    if (xmlStrncmp(name, xml("xml:"), 4) == 0) {
        ns = xmlSearchNs(parent->doc, parent, xml("xml"));
        local = name.substr(4);
        if (ns == nullptr) return nullptr;
    }
    // The element's own attributes: a default that its DTD declares is no attribute yet.
    for (xmlAttrPtr attr = parent->properties; attr; attr = attr->next)
        if ((attr->ns == nullptr) == (ns == nullptr) && xmlStrEqual(attr->name, local) &&
            (ns == nullptr || xmlStrEqual(attr->ns->href, ns->href)))
            return nullptr;
    xmlAttrPtr made = xmlNewNsProp(parent, ns, local, value);
    Made::added(reinterpret_cast<xmlNodePtr>(made));
    return made;
}

xmlNodePtr addRoot(xmlDocPtr doc, const XString& name) {
    Answers::forget();
    xmlNodePtr root = xmlNewNode(nullptr, name);
    if (root != nullptr) xmlDocSetRootElement(doc, root);
    Made::added(root);
    return root;
}

Overlaps::Overlaps(xmlNodeSetPtr set) : set(set) {
    int n = set ? set->nodeNr : 0;
    if (n < 2) return;
    std::unordered_map<xmlNodePtr, int> index;
    index.reserve(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i)
        if (set->nodeTab[i] && set->nodeTab[i]->type != XML_NAMESPACE_DECL)
            index.emplace(set->nodeTab[i], i);
    for (int i = 0; i < n; ++i) {
        xmlNodePtr below = set->nodeTab[i];
        if (below == nullptr) continue;
        for (xmlNodePtr up = holderOf(below); up; below = up, up = up->parent) {
            auto hit = index.find(up);
            if (hit == index.end()) continue;
            // Attributes and namespaces of a node survive the replacement of its children.
            bool keepsOnWrite =
                below->type == XML_ATTRIBUTE_NODE || below->type == XML_NAMESPACE_DECL;
            inside.resize(static_cast<std::size_t>(n));
            inside[static_cast<std::size_t>(hit->second)].push_back({i, keepsOnWrite});
        }
    }
}

void Overlaps::destroyed(int i, bool childrenOnly) {
    if (inside.empty()) return;
    for (const auto& below : inside[static_cast<std::size_t>(i)]) {
        if ((childrenOnly && below.second) || gone(below.first)) continue;
        clear(below.first);
    }
}

void Overlaps::clear(int i) {
    cleared.resize(static_cast<std::size_t>(set->nodeNr));
    cleared[static_cast<std::size_t>(i)] = true;
    xmlNodePtr& entry = set->nodeTab[i];
    if (entry && entry->type == XML_NAMESPACE_DECL)
        xmlXPathNodeSetFreeNs(reinterpret_cast<xmlNsPtr>(entry));
    entry = nullptr;
}

bool Made::holds(xmlNodePtr node) const {
    for (; node; node = node->parent)
        if (std::find(tops.begin(), tops.end(), node) != tops.end()) return true;
    return false;
}

void Made::added(xmlNodePtr node) {
    for (Made* made = innermost; made && node; made = made->outer)
        if (!made->holds(node)) made->tops.push_back(node);
}

void Made::going(xmlNodePtr node, bool childrenOnly) {
    auto below = [&](xmlNodePtr top) {
        if (childrenOnly && top->type == XML_ATTRIBUTE_NODE && top->parent == node)
            return false;  // a node's attributes stay when its children go
        for (xmlNodePtr up = childrenOnly ? top->parent : top; up; up = up->parent)
            if (up == node) return true;
        return false;
    };
    for (Made* made = innermost; made; made = made->outer)
        made->tops.erase(std::remove_if(made->tops.begin(), made->tops.end(), below),
                         made->tops.end());
}

void Made::undo() {
    Answers::forget();
    std::vector<xmlNodePtr> gone;
    gone.swap(tops);
    for (auto node = gone.rbegin(); node != gone.rend(); ++node) {
        going(*node, false);  // recorders around this one made it too
        xmlUnlinkNode(*node);
        xmlFreeNode(*node);
    }
}

void eraseEntry(xmlNodeSetPtr set, int i, Overlaps& overlaps) {
    Answers::forget();
    xmlNodePtr node = set->nodeTab[i];
    overlaps.destroyed(i, false);
    if (node->type == XML_NAMESPACE_DECL) return;
    Made::going(node, isDocument(node));
    if (isDocument(node)) {
        for (xmlNodePtr child = node->children, next; child; child = next) {
            next = child->next;
            xmlUnlinkNode(child);
            xmlFreeNode(child);
        }
        return;
    }
    overlaps.clear(i);
    xmlUnlinkNode(node);
    xmlFreeNode(node);
}

}  // namespace xpath_store
