// Set paths made of the pieces of the set-side path language and of what lies just outside
// it, with one to three values and flags, on small documents; then the store's save and a
// load of the saved file as the tool would load it. Whatever the set answers, the document
// it leaves saves to a file that parses again; and with one value, a path that selects one
// node before the set changes that node alone.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "common.h"

namespace {

const char* const documents[] = {
    "",  // a file that isn't there: an empty document
    "<a/>",
    "<a><b/></a>",
    "<a><b>1</b><c>2</c></a>",
    "<a><b>1</b><b>2</b><b>3</b></a>",
    "<a k=\"old\" m=\"1\"/>",
    "<a><b id=\"1\"/><b id=\"2\"><c>x</c></b></a>",
    "<a><b><c>2</c><d/></b></a>",
    "<a><b><b k=\"1\"/></b><b/></a>",
    "<a><p/><p><b>1</b></p></a>",
    "<a><p/><p><b id=\"2\" k=\"1\"><c>1</c></b></p></a>",
    "<a><!--c--><?p d?><![CDATA[x]]>t</a>",
    "<a xmlns:p=\"u\"><b xmlns:q=\"v\"><c/></b></a>",
    "<project xmlns=\"urn:x\"><version>1</version></project>",
    "<!DOCTYPE a [<!ENTITY e 'x'>]><!--c--><a>&e;<b/></a><?p?>",
    "<!DOCTYPE a [<!ATTLIST a k CDATA 'd'>]><a/>",
    "<r><a/><a/></r>",
};

const char* const pieces[] = {
    "/",
    "/",
    "/",
    "//",
    "a",
    "b",
    "c",
    "d",
    "p",
    "r",
    "@id",
    "@k",
    "@m",
    "@*",
    "*",
    "[c=\"1\"]",
    "[@id=\"2\"]",
    "[@id=\"1\"]",
    "[c=1]",
    "[c='x']",
    "[@k='v']",
    "[c=x]",
    "[@p=\"c/d\"]",
    "[@v=\"p=q\"]",
    "[ c = \" x \" ]",
    "[c=\"\"]",
    "[=x]",
    "[a!=\"x\"]",
    "[@x=\"1\" and @y=\"2\"]",
    "[1]",
    "[2]",
    "[last()]",
    "[]",
    "[",
    "]",
    "=",
    "\"",
    "'",
    "text()",
    "comment()",
    "node()",
    "processing-instruction()",
    "namespace::*",
    "namespace::p",
    "p:a",
    "..",
    ".",
    "self::node()",
    "following-sibling::*",
    "ancestor::*",
    "|",
    "count(",
    "string(",
    "concat(",
    ")",
    ",",
    " ",
    "1",
    "x",
    "-",
    "\xc3\xa9",
    "\x01",
    "\xff",
    "0x",
    ":",
};

const char* const values[] = {
    "v",           "",     "1",          "a&amp;b",      "Tom & Jerry &x; &#1;",
    "&e;",         "&lt;", "&#x10FFFF;", "&#xD800;",     "x/y=z",
    "\"q'",        "--",   "x-",         "?>",           "]]>",
    "<b/>",        "\x01", "\xc3\xa9",   "\xed\xa0\x80", "\xff",
    "line\nbreak", "\t",   "\r",
};

template <std::size_t N>
const char* pick(FuzzedDataProvider& in, const char* const (&list)[N]) {
    return list[in.ConsumeIntegralInRange<std::size_t>(0, N - 1)];
}

// Mostly from the list; now and then a few raw bytes.
template <std::size_t N>
std::string piece(FuzzedDataProvider& in, const char* const (&list)[N]) {
    if (in.ConsumeIntegralInRange(0, 7) == 0) return in.ConsumeRandomLengthString(6);
    return pick(in, list);
}

// The document as nodes, one a line, leaving out what a set of the node left may change:
// its value, or an element's children.
void outline(xmlNodePtr node, xmlNodePtr left, std::size_t depth, std::string& out) {
    for (; node; node = node->next) {
        out += std::string(depth, ' ') + std::to_string(node->type) + " " +
               (node->name ? reinterpret_cast<const char*>(node->name) : "");
        if (node != left && node->type != XML_ELEMENT_NODE && node->type != XML_ENTITY_REF_NODE &&
            node->type != XML_DTD_NODE && node->content)
            out += " " + std::string(reinterpret_cast<const char*>(node->content));
        out += "\n";
        if (node->type != XML_ELEMENT_NODE) continue;
        for (xmlNsPtr ns = node->nsDef; ns; ns = ns->next)
            out +=
                std::string(depth + 1, ' ') + "xmlns " + XString(ns->href).stringValue("") + "\n";
        for (xmlAttrPtr attr = node->properties; attr; attr = attr->next) {
            xmlNodePtr it = reinterpret_cast<xmlNodePtr>(attr);
            out += std::string(depth + 1, ' ') + "@" + XString(attr->name).stringValue("");
            if (it != left) out += "=" + XString(xmlNodeGetContent(it), true).stringValue("");
            out += "\n";
        }
        if (node != left) outline(node->children, left, depth + 1, out);
    }
}

// With one value, a path that selects one node before the set: that node takes the value and
// nothing else changes, or the set is refused and nothing changes at all.
void onlyThatNode(const std::string& document, const std::string& path,
                  const std::vector<XString>& texts, const std::vector<bool>& flags) {
    if (std::count(flags.begin(), flags.end(), true) != 1 || document.empty()) return;
    XMLLoaderImpl impl;
    impl.doc = xmlReadMemory(document.data(), static_cast<int>(document.size()), nullptr, nullptr,
                             XML_PARSE_NONET);
    xmlXPathContextPtr ctx = nullptr;
    xmlXPathObjectPtr obj = nullptr;
    if (impl.doc == nullptr || !impl.evalToContextAndObj(XString(path), ctx, obj)) return;
    xmlNodePtr node = obj->type == XPATH_NODESET && obj->nodesetval && obj->nodesetval->nodeNr == 1
                          ? obj->nodesetval->nodeTab[0]
                          : nullptr;
    if (node && node->type == XML_NAMESPACE_DECL) node = nullptr;  // freed with the object
    xmlXPathFreeObject(obj);
    xmlXPathFreeContext(ctx);
    if (node == nullptr) return;
    std::string before, after;
    outline(impl.doc->children, node, 0, before);
    const bool set = impl.setOrCreateVector(XString(path), texts, flags);
    outline(impl.doc->children, node, 0, after);
    if (before != after)
        fuzz::broken(set ? "a set of the one node selected changed another"
                         : "a refused set of the one node selected changed the document");
    const std::size_t at = std::find(flags.begin(), flags.end(), true) - flags.begin();
    const std::string value = texts[at].stringValue("");
    if (set && value.find('&') == std::string::npos &&
        XString(xmlNodeGetContent(node), true).stringValue("") != value)
        fuzz::broken("the one node selected doesn't hold the value set");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    std::string document = in.ConsumeIntegralInRange(0, 7) == 0 ? in.ConsumeRandomLengthString(64)
                                                                : pick(in, documents);

    std::string path = in.ConsumeBool() ? "/" : "";
    for (int n = in.ConsumeIntegralInRange(1, 8); n > 0; --n)
        path += piece(in, pieces);

    std::vector<XString> texts;
    std::vector<bool> flags;
    for (int n = in.ConsumeIntegralInRange(1, 3); n > 0; --n) {
        std::string value = piece(in, values);
        texts.push_back(value.empty() && in.ConsumeBool() ? XString() : XString(value));
        flags.push_back(in.ConsumeIntegralInRange(0, 3) != 0);
    }

    XMLLoader loader(fuzz::scratchFile());
    if (document.empty()) {
        unlink(fuzz::scratchFile().c_str());
        if (!loader.loadFile(true)) fuzz::broken("no empty document for a missing file");
    } else if (!loader.loadArray(document.data(), static_cast<unsigned int>(document.size()))) {
        return 0;
    }

    std::string& shown = fuzz::current();
    shown = "document: " + document + "\npath: " + path + "\nvalues:";
    for (std::size_t i = 0; i < texts.size(); ++i)
        shown += std::string(" [") + (texts[i].blank() ? "(none)" : texts[i].stringValue("")) +
                 "]" + (flags[i] ? "T" : "F");
    onlyThatNode(document, path, texts, flags);
    const bool set = loader.setOrCreateVectorImpl(XString(path), texts, flags);
    std::vector<std::string> read;
    loader.getVector("//node()|//@*|//namespace::*", read);

    // A document with no root saves as a declaration alone, which doesn't parse. A root is
    // never erased, and a set that worked leaves one, unless it had nothing to do.
    std::vector<std::string> roots;
    loader.getVector("/*", roots);
    if (roots.empty()) {
        const bool asked = std::find(flags.begin(), flags.end(), true) != flags.end();
        if (!document.empty()) fuzz::broken("the root is gone");
        if (set && asked) fuzz::broken("a set that worked left no root");
        return 0;
    }
    const fuzz::Saved saved = fuzz::saveAndReload(loader);
    if (saved == fuzz::Saved::refused && set)
        fuzz::broken("a document that a set made can't be saved");
    if (saved == fuzz::Saved::unreadable)
        fuzz::broken(set ? "the file saved after a set that worked doesn't parse"
                         : "the file saved after a refused set doesn't parse");
    return 0;
}
