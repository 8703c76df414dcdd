#include "xmlloader.h"

#include <fcntl.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlsave.h>
#include <libxml/xpathInternals.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <unordered_map>

// Built first: it only stores the address of its parent, which comes up next.
Logger XMLLoaderImpl::logger("XMLLoaderImpl", &XMLLoader::logger);
Logger XMLLoader::logger("XMLLoader", nullptr);

std::uint32_t XMLLoaderImpl::references = 0;

// A line is assembled only when its level passes, so a silent call costs no string work.
#define XLOG(functor, level, text)                           \
    do {                                                     \
        if ((functor).passes(level)) (functor)(level, text); \
    } while (0)

namespace {

std::string str(const XString& s) {
    return s.stringValue(std::string());
}
const xmlChar* xml(const char* s) {
    return reinterpret_cast<const xmlChar*>(s);
}

void freeEval(xmlXPathObjectPtr& obj, xmlXPathContextPtr& ctx) {
    xmlXPathFreeObject(obj);
    xmlXPathFreeContext(ctx);
    obj = nullptr;
    ctx = nullptr;
}

// libxml2 reports many failed allocations only through its last error, and carries on with a
// shorter text, a lost child or an empty value. The outermost store operation clears that
// error; every operation fails if memory ran out on the way.
class MemoryWatch {
  public:
    MemoryWatch() {
        if (depth++ == 0) xmlResetLastError();
    }
    ~MemoryWatch() { --depth; }
    static bool ranOut() {
        const xmlError* last = xmlGetLastError();
        return last && last->code == XML_ERR_NO_MEMORY;
    }
    bool ok(bool result) const { return result && !ranOut(); }

  private:
    static int depth;
};
int MemoryWatch::depth = 0;

// xmlXPathEvalExpression, with the value stack made up front: libxml2 2.9 frees its context
// and writes through a null stack when it fails to make the stack itself.
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

// Within one set the same question is often asked twice with nothing changed in between (a
// parent's count, then its nodes), and on a wide element each one scans all its children.
// Node sets are kept from the first and handed out as copies, until the tree is about to
// change or the outermost set ends.
class Answers {
  public:
    Answers() { ++depth; }
    ~Answers() {
        if (--depth == 0) forget();
    }
    static xmlXPathObjectPtr find(xmlDocPtr doc, const XString& path) {
        if (depth == 0 || doc != of) return nullptr;
        for (const auto& kept : answers)
            if (kept.first == path) return copyOf(kept.second);
        return nullptr;
    }
    static void keep(xmlDocPtr doc, const XString& path, xmlXPathObjectPtr obj) {
        if (depth == 0 || obj->type != XPATH_NODESET) return;
        if (doc != of) forget();
        of = doc;
        if (xmlXPathObjectPtr copy = copyOf(obj)) answers.emplace_back(path, copy);
    }
    // Before any change to the tree: the kept node sets may point to nodes about to go.
    static void forget() {
        for (const auto& kept : answers)
            xmlXPathFreeObject(kept.second);
        answers.clear();
    }

  private:
    static int depth;
    static xmlDocPtr of;
    static std::vector<std::pair<XString, xmlXPathObjectPtr>> answers;
};
int Answers::depth = 0;
xmlDocPtr Answers::of = nullptr;
std::vector<std::pair<XString, xmlXPathObjectPtr>> Answers::answers;

unsigned int nodeCount(xmlXPathObjectPtr obj) {
    return obj && obj->nodesetval ? static_cast<unsigned int>(obj->nodesetval->nodeNr) : 0;
}

// The content that the library would copy out for a node, read in place where that is its
// own text: a text, CDATA, comment or instruction, or an element holding one text or CDATA
// alone. False for anything else, which is left to xmlNodeGetContent.
bool ownContent(xmlNodePtr node, const xmlChar*& text) {
    static const xmlChar none[] = "";
    switch (node->type) {
        case XML_TEXT_NODE:
        case XML_CDATA_SECTION_NODE:
        case XML_COMMENT_NODE:
        case XML_PI_NODE:
            text = node->content ? node->content : none;
            return true;
        case XML_ELEMENT_NODE:
            if (node->children == nullptr) {
                text = none;
                return true;
            }
            if (node->children->next == nullptr &&
                (node->children->type == XML_TEXT_NODE ||
                 node->children->type == XML_CDATA_SECTION_NODE)) {
                text = node->children->content ? node->children->content : none;
                return true;
            }
            return false;
        default:
            return false;
    }
}

// The value of a node that is not a text node, piece by piece: hands put each child's content
// (null for none), and whether a blank follows it, as one comes between siblings. A child's
// own text is handed where it stands; other content is copied out and freed after.
template <class Put>
void eachPiece(xmlNodePtr node, Put put) {
    for (xmlNodePtr child = node->children; child != nullptr; child = child->next) {
        const xmlChar* own = nullptr;
        if (ownContent(child, own)) {
            put(own, child->next != nullptr);
        } else {
            xmlChar* content = xmlNodeGetContent(child);
            put(content, child->next != nullptr);
            xmlFree(content);
        }
    }
}

// The value of a node that is not a text node, built in one growing buffer: joining by +=
// would copy the whole text once per child. ok turns false when the buffer can't be had.
XString childrenValue(xmlNodePtr node, bool& ok) {
    xmlNodePtr child = node->children;
    if (child == nullptr) return XString();
    if (child->next == nullptr) {
        XString value(xmlNodeGetContent(child), true);
        value.length();  // a joined value is measured, and an empty one holds no text
        return value;
    }
    std::size_t size = 0, capacity = 256;
    xmlChar* buffer = static_cast<xmlChar*>(xmlMalloc(capacity));
    eachPiece(node, [&](const xmlChar* text, bool blank) {
        std::size_t n = text ? std::strlen(reinterpret_cast<const char*>(text)) : 0;
        std::size_t need = size + n + 2;  // the blank and the terminating NUL
        if (buffer != nullptr && need > capacity) {
            while (capacity < need)
                capacity *= 2;
            xmlChar* grown = static_cast<xmlChar*>(xmlRealloc(buffer, capacity));
            if (grown == nullptr) xmlFree(buffer);
            buffer = grown;
        }
        if (buffer == nullptr) return;
        if (n) std::memcpy(buffer + size, text, n);
        size += n;
        if (blank) buffer[size++] = ' ';
        buffer[size] = 0;
    });
    ok = ok && buffer != nullptr;
    XString value(buffer, true);
    value.length();
    return value;
}

// Writes a node's value (nodeValue's bytes) and a newline to out, piece by piece from the
// document: a large value is never gathered. Pieces go out in blocks, not one stdio call each.
class ValueWriter {
  public:
    explicit ValueWriter(std::FILE* out) : out(out) {}
    ~ValueWriter() { flush(); }

    void write(xmlNodePtr node) {
        if (node->type == XML_NAMESPACE_DECL) {
            put(reinterpret_cast<xmlNsPtr>(node)->href);
        } else if (xmlNodeIsText(node)) {
            put(node->content);
        } else {
            eachPiece(node, [this](const xmlChar* text, bool blank) {
                put(text);
                if (blank) put(' ');
            });
        }
        put('\n');
    }

  private:
    void put(const xmlChar* text) {
        if (text == nullptr) return;
        const std::size_t n = std::strlen(reinterpret_cast<const char*>(text));
        if (n > sizeof block - used) {
            flush();
            if (n >= sizeof block) {  // a large piece goes straight out
                std::fwrite(text, 1, n, out);
                return;
            }
        }
        std::memcpy(block + used, text, n);
        used += n;
    }
    void put(char c) {
        if (used == sizeof block) flush();
        block[used++] = c;
    }
    void flush() {
        if (used) std::fwrite(block, 1, used, out);
        used = 0;
    }

    std::FILE* out;
    std::size_t used = 0;
    char block[1 << 15];
};

XString nodeValue(xmlNodePtr node, bool& ok) {
    // A namespace node is a different record: its links are not children and siblings.
    if (node->type == XML_NAMESPACE_DECL) return XString(reinterpret_cast<xmlNsPtr>(node)->href);
    if (xmlNodeIsText(node)) return XString(xmlNodeGetContent(node), true);
    return childrenValue(node, ok);
}

// ---- What the set side may write: names and text that parse again once saved. ----

// The library's name check decodes any byte as a lead byte, so the bytes are checked first.
bool validText(const XString& text);
bool validName(const XString& name) {
    unsigned long n = name.length();
    return n > 0 && n <= XML_MAX_NAME_LENGTH && validText(name) && xmlValidateNCName(name, 0) == 0;
}

bool xmlChar32(unsigned int c) {
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
           (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

// Well-formed UTF-8 made of characters that XML allows, short enough for the parser.
bool validText(const XString& text) {
    unsigned long n = text.length();
    if (n > XML_MAX_TEXT_LENGTH) return false;
    const unsigned char* s = text;
    for (unsigned long i = 0; i < n;) {
        unsigned char c = s[i];
        int extra = c < 0x80 ? 0 : c < 0xC2 ? -1 : c < 0xE0 ? 1 : c < 0xF0 ? 2 : c < 0xF5 ? 3 : -1;
        if (extra < 0 || n - i <= static_cast<unsigned long>(extra)) return false;
        unsigned int cp = extra ? c & (0x3F >> extra) : c;
        for (int k = 1; k <= extra; ++k) {
            unsigned char next = s[i + k];
            if ((next & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (next & 0x3F);
        }
        static const unsigned int least[] = {0, 0x80, 0x800, 0x10000};  // no overlong forms
        if (cp < least[extra] || !xmlChar32(cp)) return false;
        i += static_cast<unsigned long>(extra) + 1;
    }
    return true;
}

// Length of a character reference, or a reference to one of XML's five predefined entities,
// at s ("&...;"), or 0. (A document's own entities may not parse where the value goes.)
std::size_t knownReference(const unsigned char* s) {
    // Bounded, so that a text full of '&' and no ';' isn't scanned to its end for each one.
    const std::size_t longest = 256;
    const unsigned char* end = static_cast<const unsigned char*>(
        std::memchr(s, ';', strnlen(reinterpret_cast<const char*>(s), longest)));
    if (end == nullptr || end - s < 2) return 0;
    std::size_t length = static_cast<std::size_t>(end - s) + 1;
    if (s[1] == '#') {
        bool hex = s[2] == 'x';
        const unsigned char* p = s + (hex ? 3 : 2);
        if (p == end) return 0;
        unsigned long value = 0;
        for (; p < end; ++p) {
            int digit = (*p >= '0' && *p <= '9')   ? *p - '0'
                        : !hex                     ? -1
                        : (*p >= 'a' && *p <= 'f') ? *p - 'a' + 10
                        : (*p >= 'A' && *p <= 'F') ? *p - 'A' + 10
                                                   : -1;
            if (digit < 0) return 0;
            value = value * (hex ? 16 : 10) + static_cast<unsigned long>(digit);
            if (value > 0x10FFFF) return 0;
        }
        return xmlChar32(static_cast<unsigned int>(value)) ? length : 0;
    }
    std::string name(reinterpret_cast<const char*>(s + 1), length - 2);
    return xmlGetPredefinedEntity(xml(name.c_str())) ? length : 0;
}

// Content for xmlNodeSetContent, which reads references: character references and the
// predefined entities stay, any other '&' becomes literal text rather than a reference that
// could break the saved file or lose the value.
bool contentText(const XString& value, std::string& out) {
    if (!validText(value)) return false;
    const unsigned char* s = value;
    out.clear();
    for (const unsigned char* p = s; *p; ++p) {
        if (*p != '&') {
            out += static_cast<char>(*p);
            continue;
        }
        std::size_t n = knownReference(p);
        if (n) {
            out.append(reinterpret_cast<const char*>(p), n);
            p += n - 1;
        } else {
            out += "&amp;";
        }
    }
    return true;
}

// Writes value into an existing node. False for a node that can't hold it.
bool writeValue(xmlNodePtr node, const XString& value) {
    Answers::forget();
    switch (node->type) {
        case XML_ELEMENT_NODE:
        case XML_ATTRIBUTE_NODE: {
            std::string text;
            if (!contentText(value, text)) return false;
            xmlNodeSetContent(node, xml(text.c_str()));
            return true;
        }
        case XML_COMMENT_NODE:
            if (std::strstr(reinterpret_cast<const char*>(static_cast<const unsigned char*>(value)),
                            "--") ||
                (value.length() && value[static_cast<unsigned int>(value.length() - 1)] == '-'))
                return false;
            break;
        case XML_PI_NODE:
            if (std::strstr(reinterpret_cast<const char*>(static_cast<const unsigned char*>(value)),
                            "?>"))
                return false;
            break;
        case XML_TEXT_NODE:
        case XML_CDATA_SECTION_NODE:
            break;
        default:  // the document, a namespace, ...: nothing that a value could be stored in
            return false;
    }
    if (!validText(value)) return false;
    xmlNodeSetContent(node, value);
    return true;
}

// Depth of a node below the document: the root element is 1.
unsigned int depthOf(xmlNodePtr node) {
    unsigned int depth = 0;
    for (; node && node->type != XML_DOCUMENT_NODE && node->type != XML_HTML_DOCUMENT_NODE;
         node = node->parent)
        ++depth;
    return depth;
}

// A new element below parent, which must be an element, or the document while it has no
// root, and not so deep that the saved file would pass the parser's nesting limit.
xmlNodePtr addElement(xmlNodePtr parent, const XString& name, const XString* value) {
    Answers::forget();
    if (parent == nullptr || !validName(name) || (value && !validText(*value))) return nullptr;
    if (parent->type == XML_DOCUMENT_NODE) {
        if (xmlDocGetRootElement(reinterpret_cast<xmlDocPtr>(parent))) return nullptr;
    } else if (parent->type != XML_ELEMENT_NODE || depthOf(parent) > xmlParserMaxDepth) {
        return nullptr;
    }
    return value ? xmlNewTextChild(parent, nullptr, name, *value)
                 : xmlNewChild(parent, nullptr, name, nullptr);
}

// An attribute's name may carry the prefix xml, which every document knows (xml:lang).
bool validAttributeName(const XString& name) {
    bool prefixed = name.length() > 4 && xmlStrncmp(name, xml("xml:"), 4) == 0;
    return validName(prefixed ? name.substr(4) : name);
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
    return xmlNewNsProp(parent, ns, local, value);
}

bool isDocument(xmlNodePtr node) {
    return node->type == XML_DOCUMENT_NODE || node->type == XML_HTML_DOCUMENT_NODE;
}

// The node that a node set entry hangs from: a namespace entry made for the namespace axis
// keeps its element in 'next'.
xmlNodePtr holderOf(xmlNodePtr entry) {
    if (entry->type != XML_NAMESPACE_DECL) return entry->parent;
    xmlNodePtr next = reinterpret_cast<xmlNodePtr>(reinterpret_cast<xmlNsPtr>(entry)->next);
    return next && next->type != XML_NAMESPACE_DECL ? next : nullptr;
}

// Entries of one node set that lie inside another entry's subtree. When an entry is
// removed, or its children replaced, the entries that went with it are cleared from the set
// at once, so that nothing touches a freed node: not the next step, not freeing the set.
class Overlaps {
  public:
    explicit Overlaps(xmlNodeSetPtr set) : set(set) {
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

    // Entry i is gone when it went with another entry.
    bool gone(int i) const { return !cleared.empty() && cleared[static_cast<std::size_t>(i)]; }

    // Entry i was removed (childrenOnly false) or had its children replaced.
    void destroyed(int i, bool childrenOnly) {
        if (inside.empty()) return;
        for (const auto& below : inside[static_cast<std::size_t>(i)]) {
            if ((childrenOnly && below.second) || gone(below.first)) continue;
            clear(below.first);
        }
    }

    // Takes entry i out of the set without touching the tree.
    void clear(int i) {
        cleared.resize(static_cast<std::size_t>(set->nodeNr));
        cleared[static_cast<std::size_t>(i)] = true;
        xmlNodePtr& entry = set->nodeTab[i];
        if (entry && entry->type == XML_NAMESPACE_DECL)
            xmlXPathNodeSetFreeNs(reinterpret_cast<xmlNsPtr>(entry));
        entry = nullptr;
    }

  private:
    xmlNodeSetPtr set;
    std::vector<std::vector<std::pair<int, bool>>> inside;
    std::vector<bool> cleared;
};

// Unlinks and frees entry i with its subtree. The document itself stays: it loses its
// top-level nodes instead. A namespace entry belongs to the set and stays in the tree.
void eraseEntry(xmlNodeSetPtr set, int i, Overlaps& overlaps) {
    Answers::forget();
    xmlNodePtr node = set->nodeTab[i];
    overlaps.destroyed(i, false);
    if (node->type == XML_NAMESPACE_DECL) return;
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

// The options under which the library's reading calls build the same tree as its plain
// parse under the process-wide settings, with names shared in the document's dictionary and
// short texts kept inside their nodes: the same tree, built faster and smaller.
int leanParseOptions() {
    int options = XML_PARSE_COMPACT;
    if (!xmlKeepBlanksDefaultValue) options |= XML_PARSE_NOBLANKS;
    if (xmlSubstituteEntitiesDefaultValue) options |= XML_PARSE_NOENT;
    if (xmlLoadExtDtdDefaultValue & XML_DETECT_IDS) options |= XML_PARSE_DTDLOAD;
    if (xmlLoadExtDtdDefaultValue & XML_COMPLETE_ATTRS) options |= XML_PARSE_DTDATTR;
    if (xmlDoValidityCheckingDefaultValue) options |= XML_PARSE_DTDVALID;
    if (xmlPedanticParserDefaultValue) options |= XML_PARSE_PEDANTIC;
    return options;
}

// A parse that ran out of memory can end early and still hand back a document: refused.
xmlDocPtr whole(xmlDocPtr doc) {
    if (doc && (MemoryWatch::ranOut() || xmlDocGetRootElement(doc) == nullptr)) {
        xmlFreeDoc(doc);
        return nullptr;
    }
    return doc;
}

// The plain parse of a file marks a compressed one for the strongest compression on save.
xmlDocPtr readFile(const std::string& file) {
    // A setting that no option expresses keeps the plain parse.
    if (xmlLoadExtDtdDefaultValue & ~(XML_DETECT_IDS | XML_COMPLETE_ATTRS))
        return whole(xmlParseFile(file.c_str()));
    xmlDocPtr doc = whole(xmlReadFile(file.c_str(), nullptr, leanParseOptions()));
    if (doc && doc->compression > 0) doc->compression = 9;
    return doc;
}

// ---- Saving: a new file swapped in whole, or else the whole text first, then the space for
// it, and only then the old bytes. ----

// The serialised document, gathered in one block that grows in place.
struct Text {
    char* data = nullptr;
    std::size_t size = 0, capacity = 0;
    bool failed = false;
    ~Text() { std::free(data); }

    static int append(void* context, const char* bytes, int length) {
        Text& text = *static_cast<Text*>(context);
        std::size_t need = text.size + static_cast<std::size_t>(length);
        if (need > text.capacity) {
            std::size_t capacity = std::max(need, text.capacity ? text.capacity * 2 : 1 << 16);
            char* grown = static_cast<char*>(std::realloc(text.data, capacity));
            if (grown == nullptr) {
                text.failed = true;
                return -1;
            }
            text.data = grown;
            text.capacity = capacity;
        }
        std::memcpy(text.data + text.size, bytes, static_cast<std::size_t>(length));
        text.size = need;
        return length;
    }
};

// The same text as the library's formatted UTF-8 save to a file, handed to sink's append.
template <class Sink>
bool serialise(xmlDocPtr doc, Sink& sink) {
    xmlSaveCtxtPtr save =
        xmlSaveToIO(Sink::append, nullptr, &sink, "UTF-8", XML_SAVE_FORMAT | XML_SAVE_AS_XML);
    if (save == nullptr) return false;
    bool dumped = xmlSaveDoc(save, doc) >= 0;
    bool flushed = xmlSaveClose(save) >= 0;
    return dumped && flushed && !sink.failed && sink.size > 0;
}

// Writes all bytes at offset at, or in order from where the file stands for at < 0.
bool writeAll(int fd, const char* bytes, std::size_t size, off_t at) {
    while (size > 0) {
        ssize_t written = at < 0 ? write(fd, bytes, size) : pwrite(fd, bytes, size, at);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes += written;
        size -= static_cast<std::size_t>(written);
        if (at >= 0) at += written;
    }
    return true;
}

// Makes sure that size bytes fit in the file before any of its bytes change: within the
// process's file size limit, and with the blocks allocated. Where the file system can't
// allocate ahead, the file grows by zeros past its end, taken back if that fails.
bool reserve(int fd, off_t oldSize, std::size_t size) {
    struct rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
        size > limit.rlim_cur)
        return false;
    if (fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size)) == 0) return true;
    if (errno != EOPNOTSUPP && errno != ENOSYS) return false;
    if (static_cast<off_t>(size) <= oldSize) return true;
    std::vector<char> zeros(static_cast<std::size_t>(size) - static_cast<std::size_t>(oldSize));
    if (writeAll(fd, zeros.data(), zeros.size(), oldSize)) return true;
    int restored = ftruncate(fd, oldSize);  // nothing but the length had changed
    (void)restored;
    return false;
}

// The file that an open descriptor stands for, which differs from the name given when that
// name is a link.
std::string openedPath(int fd, const std::string& name) {
    char target[4096];
    std::string link = "/proc/self/fd/" + std::to_string(fd);
    ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
    return n > 0 ? std::string(target, static_cast<std::size_t>(n)) : name;
}

// Overwrites the file in place (same inode, same permissions), or makes it. A pipe or a
// device has no space to reserve: it is written in order.
bool writeInPlace(const std::string& file, const Text& text) {
    std::string made;
    int fd = open(file.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT) {
        fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);  // through a link too
        if (fd >= 0) made = openedPath(fd, file);
    }
    if (fd < 0) return false;
    struct stat info;
    bool ok = fstat(fd, &info) == 0;
    if (ok && S_ISREG(info.st_mode))
        ok = reserve(fd, info.st_size, text.size) && writeAll(fd, text.data, text.size, 0) &&
             ftruncate(fd, static_cast<off_t>(text.size)) == 0;
    else if (ok)
        ok = writeAll(fd, text.data, text.size, -1);
    ok = close(fd) == 0 && ok;
    if (!ok && !made.empty()) unlink(made.c_str());  // a file that wasn't there stays missing
    return ok;
}

// The serialised document on its way to a descriptor, in large writes, never past the
// process's file size limit (which would raise a signal rather than fail the write).
struct Stream {
    int fd;
    std::size_t size = 0, used = 0;
    rlim_t limit = RLIM_INFINITY;
    bool failed = false;
    char block[1 << 18];

    explicit Stream(int fd) : fd(fd) {
        struct rlimit fsize;
        if (getrlimit(RLIMIT_FSIZE, &fsize) == 0) limit = fsize.rlim_cur;
    }
    // A failure is only recorded: an error returned here would have the library print its own.
    static int append(void* context, const char* bytes, int length) {
        Stream& out = *static_cast<Stream*>(context);
        const std::size_t n = static_cast<std::size_t>(length);
        if (out.failed || out.overLimit(n)) return length;
        if (out.used + n > sizeof out.block && !out.flush()) return length;
        if (n > sizeof out.block) {
            out.failed = !writeAll(out.fd, bytes, n, -1);
        } else {
            std::memcpy(out.block + out.used, bytes, n);
            out.used += n;
        }
        out.size += n;
        return length;
    }
    bool overLimit(std::size_t n) {
        failed = limit != RLIM_INFINITY && size + n > limit;
        return failed;
    }
    bool flush() {
        if (used && !writeAll(fd, block, used, -1)) failed = true;
        used = 0;
        return !failed;
    }
};

// A new file beside the old one, renamed over it once whole: nothing of the text is held in
// memory, and the old file is untouched until the new one is complete. Only where the swap
// keeps all the old file had: one name, its owner and mode, no extended attributes (ACLs,
// labels), writable to this process. Elsewhere the caller writes in place.
enum class Swap { done, failed, unsuitable };
Swap swapIn(const std::string& file, xmlDocPtr doc) {
    char* resolved = realpath(file.c_str(), nullptr);  // a link stays a link to the new file
    if (resolved == nullptr) return Swap::unsuitable;
    const std::string target(resolved);
    std::free(resolved);
    struct stat old;
    if (stat(target.c_str(), &old) != 0 || !S_ISREG(old.st_mode) || old.st_nlink != 1 ||
        faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0 ||
        listxattr(target.c_str(), nullptr, 0) != 0)
        return Swap::unsuitable;
    const std::size_t slash = target.rfind('/');
    std::string temp = target.substr(0, slash + 1) + "." + target.substr(slash + 1) + ".XXXXXX";
    int fd = mkostemp(&temp[0], O_CLOEXEC);
    if (fd < 0) return Swap::unsuitable;
    struct stat made;
    bool same = fstat(fd, &made) == 0 &&
                ((made.st_uid == old.st_uid && made.st_gid == old.st_gid) ||
                 fchown(fd, old.st_uid, old.st_gid) == 0) &&
                fchmod(fd, old.st_mode & 07777) == 0 && flistxattr(fd, nullptr, 0) == 0;
    bool written = false;
    if (same) {
        std::unique_ptr<Stream> out(new (std::nothrow) Stream(fd));
        // Text cut short for want of memory is no document to put in the old one's place.
        written = out && serialise(doc, *out) && out->flush() && !MemoryWatch::ranOut();
    }
    written = close(fd) == 0 && written;
    if (same && written && rename(temp.c_str(), target.c_str()) == 0) return Swap::done;
    unlink(temp.c_str());
    return same ? Swap::failed : Swap::unsuitable;
}

// Nesting of set operations; paths deeper than any document the parser reads are refused
// before they can exhaust the stack.
unsigned int setDepth = 0;
struct SetDepth {
    SetDepth() { ++setDepth; }
    ~SetDepth() { --setDepth; }
    bool tooDeep() const { return setDepth > xmlParserMaxDepth + 8; }
};

}  // namespace

// ---------------------------------------------------------------- lifetime

XMLLoaderImpl::XMLLoaderImpl() : filename(), doc(nullptr) {
    start();
}

XMLLoaderImpl::XMLLoaderImpl(const char* name) : filename(name), doc(nullptr) {
    start();
}

XMLLoaderImpl::XMLLoaderImpl(const XMLLoaderImpl& o) : filename(o.filename), doc(nullptr) {
    start();
    if (o.doc) doc = xmlCopyDoc(o.doc, 1);
}

XMLLoaderImpl& XMLLoaderImpl::operator=(const XMLLoaderImpl& o) {
    if (this == &o) return *this;
    xmlFreeDoc(doc);
    doc = o.doc ? xmlCopyDoc(o.doc, 0) : nullptr;  // the document's properties, not its content
    filename = o.filename;
    return *this;
}

bool XMLLoaderImpl::operator==(const XMLLoaderImpl& o) const {
    if (doc == nullptr) return o.doc == nullptr;
    if (o.doc == nullptr) return false;
    xmlChar* left = nullptr;
    xmlChar* right = nullptr;
    int leftSize = 0, rightSize = 0;
    xmlDocDumpMemory(doc, &left, &leftSize);
    xmlDocDumpMemory(o.doc, &right, &rightSize);
    // Bounded by the left text alone: a left text that is a prefix of the right one is equal.
    bool equal = xmlStrncmp(left, right, xmlStrlen(left)) == 0;
    xmlFree(left);
    xmlFree(right);
    return equal;
}

XMLLoaderImpl::~XMLLoaderImpl() {
    xmlFreeDoc(doc);
    stop();
}

void XMLLoaderImpl::start() {
    if (references == 0) {
        logger.trace("start", LOG_TRACE, "First instance, initialising parser");
        xmlInitParser();
        LIBXML_TEST_VERSION
        xmlKeepBlanksDefault(0);
        *__xmlIndentTreeOutput() = 1;
    }
    ++references;
}

void XMLLoaderImpl::stop() {
    --references;
    if (references == 0) {
        logger.trace("stop", LOG_TRACE, "Last instance, cleaning up parser");
        xmlCleanupParser();
    }
}

XMLLoader::XMLLoader() : impl(new XMLLoaderImpl()) {}
XMLLoader::XMLLoader(const char* name) : impl(new XMLLoaderImpl(name)) {}
XMLLoader::XMLLoader(const std::string& name) : impl(new XMLLoaderImpl(name.c_str())) {}
XMLLoader::XMLLoader(const XMLLoader& o) : impl(new XMLLoaderImpl(*o.impl)) {}

XMLLoader& XMLLoader::operator=(const XMLLoader& o) {
    if (this != &o) *impl = *o.impl;
    return *this;
}

// The argument's document is the left side, so its text bounds the comparison.
bool XMLLoader::operator==(const XMLLoader& o) const {
    return *o.impl == *impl;
}

XMLLoader::~XMLLoader() {
    delete impl;
}

Logger& XMLLoader::getLogger() {
    return logger;
}

// ---------------------------------------------------------------- files and buffers

bool XMLLoader::loadFile(bool create) {
    auto log = logger.getFunctor<Logger::Id>("loadFile");
    MemoryWatch watch;
    XLOG(log, LOG_TRACE, "Loading file " + impl->filename);
    xmlFreeDoc(impl->doc);
    impl->doc = nullptr;
    struct stat info;
    if (stat(impl->filename.c_str(), &info) == 0) {
        impl->doc = readFile(impl->filename);
    } else {
        if (!create) return false;
        XLOG(log, LOG_TRACE, "File not found, initialising empty file");
        impl->doc = xmlNewDoc(xml("1.0"));
    }
    return impl->doc != nullptr;
}

bool XMLLoader::loadArray(const char* buffer, unsigned int size) {
    auto log = logger.getFunctor<Logger::Id>("loadArray");
    MemoryWatch watch;
    XLOG(log, LOG_TRACE, "Loading array...");
    xmlFreeDoc(impl->doc);
    impl->doc =
        whole(xmlReadMemory(buffer, static_cast<int>(size), nullptr, nullptr, leanParseOptions()));
    return impl->doc != nullptr;
}

bool XMLLoader::saveFile() const {
    auto log = logger.getFunctor<Logger::Id>("saveFile");
    MemoryWatch watch;
    XLOG(log, LOG_TRACE, "Saving file: " + impl->filename);
    xmlKeepBlanksDefault(0);
    if (impl->doc == nullptr) return false;
    // Left to the library's own save: a compressed file, written back compressed, and "-",
    // which the library reads and writes as the standard streams.
    int compression = impl->doc->compression < 0 ? xmlGetCompressMode() : impl->doc->compression;
    if (compression > 0 || impl->filename == "-")
        return xmlSaveFormatFileEnc(impl->filename.c_str(), impl->doc, "UTF-8", 1) > 0;
    const Swap swapped = swapIn(impl->filename, impl->doc);
    if (swapped != Swap::unsuitable) return watch.ok(swapped == Swap::done);
    Text text;
    return watch.ok(serialise(impl->doc, text)) && writeInPlace(impl->filename, text);
}

// ---------------------------------------------------------------- reading

bool XMLLoader::getVectorImpl(const XString& path, std::vector<XString>& values,
                              unsigned int max) const {
    return impl->getVector(path, values, max);
}

bool XMLLoader::writeValues(const std::string& path, std::FILE* out) const {
    return impl->writeValues(XString(path), out);
}

bool XMLLoader::setOrCreateVectorImpl(const XString& path, const std::vector<XString>& values,
                                      const std::vector<bool>& flags) {
    return impl->setOrCreateVector(path, values, flags);
}

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
        obj = evaluate(path, ctx);
        if (obj != nullptr && !watch.ok(true)) {  // a node set that may lack nodes
            xmlXPathFreeObject(obj);
            obj = nullptr;
        }
        if (obj != nullptr) Answers::keep(doc, path, obj);
    }
    if (obj == nullptr) {
        XLOG(log, LOG_ERROR, "Failed to evaluate expression " + str(path));
        xmlXPathFreeContext(ctx);
        ctx = nullptr;
        return false;
    }
    return true;
}

unsigned int XMLLoaderImpl::countNodes(const XString& path) const {
    auto log = logger.getFunctor<Logger::Id>("countNodes");
    MemoryWatch watch;
    XLOG(log, LOG_TRACE, "Counting: " + str(path));
    xmlXPathContextPtr ctx = nullptr;
    xmlXPathObjectPtr obj = nullptr;
    if (!evalToContextAndObj(path, ctx, obj)) return 0;
    unsigned int count = nodeCount(obj);
    freeEval(obj, ctx);
    return watch.ok(true) ? count : 0;
}

namespace {

// Evaluates path and hands each selected node (the first max; all when max is 0) to visit,
// in order: the common way of getVector and writeValues, with the same log lines.
template <class Visit>
bool eachNode(const XMLLoaderImpl& impl, const XString& path, unsigned int max, Visit visit) {
    auto log = XMLLoaderImpl::logger.getFunctor<Logger::Id>("getVector");
    MemoryWatch watch;
    XLOG(log, LOG_TRACE, "getVector: " + str(path));
    xmlXPathContextPtr ctx = nullptr;
    xmlXPathObjectPtr obj = nullptr;
    if (!impl.evalToContextAndObj(path, ctx, obj)) return false;
    unsigned int count = nodeCount(obj);
    if (max != 0 && max < count) count = max;
    bool ok = true;
    for (unsigned int i = 0; i < count && ok; ++i) {
        xmlNodePtr node = obj->nodesetval->nodeTab[i];
        if (node == nullptr) {
            XLOG(log, LOG_ERROR,
                 "NULL node when evaluating " + str(path) + "(" + std::to_string(i) + ")");
            ok = false;
            break;
        }
        visit(node, count, ok);
    }
    freeEval(obj, ctx);
    return watch.ok(ok);
}

}  // namespace

bool XMLLoaderImpl::getVector(const XString& path, std::vector<XString>& values,
                              unsigned int max) const {
    const std::size_t before = values.size();
    return eachNode(*this, path, max, [&](xmlNodePtr node, unsigned int count, bool& ok) {
        if (values.size() == before) values.reserve(before + count);  // values never move about
        values.push_back(nodeValue(node, ok));
    });
}

bool XMLLoaderImpl::writeValues(const XString& path, std::FILE* out) const {
    ValueWriter writer(out);
    return eachNode(*this, path, 0,
                    [&writer](xmlNodePtr node, unsigned int, bool&) { writer.write(node); });
}

// ---------------------------------------------------------------- path splitting

bool XMLLoaderImpl::splitPath(const XString& path, XString& parent, XString& node) {
    unsigned long slash = path.rfind("/", XString::npos);
    if (slash == XString::npos) {
        logger.trace("splitPath", LOG_ERROR, "'/' not found in string: " + str(path));
        return false;
    }
    parent = path.substr(0, slash);
    node = path.substr(slash + 1);
    return true;
}

bool XMLLoaderImpl::splitCondition(const XString& path, XString& node, XString& name,
                                   XString& value) {
    auto log = logger.getFunctor<Logger::Id>("splitCondition");
    unsigned long length = path.length();
    if (length == 0 || path[static_cast<unsigned int>(length - 1)] != ']') return false;
    unsigned long open = path.rfind("[", XString::npos);
    if (open == XString::npos) {
        value = XString();
        XLOG(log, LOG_ERROR, "']' found with no matching '[' in " + str(path));
        return false;
    }
    XString condition = path.substr(open + 1, length - open - 2);
    node = path.substr(0, open);
    unsigned long equals = condition.rfind("=", XString::npos);
    if (equals == XString::npos) {
        value = XString();
        XLOG(log, LOG_ERROR, "Non-equality condition found in 'set' path: " + str(path));
        return false;
    }
    // Trim the left side of blanks; strip the value of blanks and one quote at each end.
    unsigned long from = 0, to = equals;
    while (to > from && condition[static_cast<unsigned int>(to - 1)] == ' ')
        --to;
    while (from < to && condition[static_cast<unsigned int>(from)] == ' ')
        ++from;
    unsigned long vfrom = equals + 1, vto = condition.length();
    for (bool quote = false; vfrom < vto; ++vfrom) {
        unsigned char c = condition[static_cast<unsigned int>(vfrom)];
        if (c == '"' && !quote)
            quote = true;
        else if (c != ' ')
            break;
    }
    for (bool quote = false; vto > vfrom; --vto) {
        unsigned char c = condition[static_cast<unsigned int>(vto - 1)];
        if (c == '"' && !quote)
            quote = true;
        else if (c != ' ')
            break;
    }
    if (from == to || vfrom == vto) {
        value = XString();
        XLOG(log, LOG_ERROR, "Empty name or value in condition of 'set' path: " + str(path));
        return false;
    }
    name = condition.substr(from, to - from);
    value = condition.substr(vfrom, vto - vfrom);
    return true;
}

// ---------------------------------------------------------------- creating and setting

bool XMLLoaderImpl::createNode(const XString& path) {
    Answers answers;
    return makeNode(path, false);
}

// missing: the caller found that path selects nothing, so what the plain branch finds there
// can't be a node to overwrite: an evaluation that failed without saying so (libxml2 does
// this when memory runs out) would otherwise have the existing node emptied.
bool XMLLoaderImpl::makeNode(const XString& path, bool missing) {
    auto log = logger.getFunctor<Logger::Id>("createNode");
    MemoryWatch watch;
    XLOG(log, LOG_TRACE, "Creating node: " + str(path));
    XString nodePath, name, value;
    if (!splitCondition(path, nodePath, name, value)) {
        std::vector<XString> blank(1);
        std::vector<bool> flags(1, true);
        if (!setOrCreate(path, blank, flags, false, missing)) return false;
        return countNodes(path) == 1;
    }
    XLOG(log, LOG_TRACE, "--node is conditional");
    XString parent, element;
    if (!splitPath(nodePath, parent, element)) {
        XLOG(log, LOG_ERROR, "--failed to split the valid path: " + str(nodePath));
        return false;
    }
    if (!(parent != XString(""))) {
        log(LOG_ERROR, "Attempt to create a new root node!");
        return false;
    }
    bool onAttribute = name[0] == '@';
    XString condName = onAttribute ? name.substr(1) : name;
    if (!validName(element) ||
        !(onAttribute ? validAttributeName(condName) : validName(condName)) || !validText(value)) {
        XLOG(log, LOG_ERROR, "Invalid name or value for a new node: " + str(path));
        return false;
    }
    if (countNodes(parent) == 0) {
        XLOG(log, LOG_TRACE, "--creating parent of conditional node");
        std::vector<XString> blank(1);
        std::vector<bool> flags(1, true);
        bool made = setOrCreate(parent, blank, flags, false, true);
        if (!made || countNodes(parent) != 1) {
            XLOG(log, LOG_ERROR, "--failed to create parent: " + str(parent));
            return false;
        }
    }
    xmlXPathContextPtr ctx = nullptr;
    xmlXPathObjectPtr obj = nullptr;
    bool result = false;
    xmlNodePtr child = nullptr;
    if (evalToContextAndObj(parent, ctx, obj) && nodeCount(obj) > 0) {
        xmlNodePtr above = obj->nodesetval->nodeTab[0];
        // A child element for the condition goes a level deeper than the new element.
        if (onAttribute || (above && depthOf(above) < xmlParserMaxDepth))
            child = addElement(above, element, nullptr);
    } else {
        XLOG(log, LOG_ERROR, "Failed to locate parent node: " + str(parent));
    }
    if (child == nullptr) {
        XLOG(log, LOG_ERROR, "Failed to create child node:" + str(element));
    } else {
        result = onAttribute ? addAttribute(child, condName, value) != nullptr
                             : addElement(child, condName, &value) != nullptr;
    }
    if (!result)
        XLOG(log, LOG_ERROR, "Failed to create child node:" + str(name) + "=" + str(value));
    freeEval(obj, ctx);
    return watch.ok(result);
}

bool XMLLoaderImpl::setOrCreateVector(const XString& path, const std::vector<XString>& values,
                                      const std::vector<bool>& flags) {
    MemoryWatch watch;
    Answers answers;
    return watch.ok(setOrCreate(path, values, flags, false, false));
}

// retry: the second pass after the parent was made; the parent isn't made a second time.
// missing: path was found to select nothing (see makeNode).
bool XMLLoaderImpl::setOrCreate(const XString& path, const std::vector<XString>& values,
                                const std::vector<bool>& flags, bool retry, bool missing) {
    auto log = logger.getFunctor<Logger::Id>("setOrCreateVector");
    SetDepth depth;
    if (doc == nullptr || values.size() != flags.size() || depth.tooDeep()) {
        XLOG(log, LOG_ERROR,
             (doc == nullptr                  ? "No document to set "
              : values.size() != flags.size() ? "Values and flags differ in number for "
                                              : "Path too deep to build: ") +
                 str(path));
        return false;
    }

    XString parent, last, condName, condValue;
    bool go = splitPath(path, parent, last);
    if (go && last.length() == 0) {
        XLOG(log, LOG_ERROR, "Path names no node to set: " + str(path));
        return false;
    }
    const bool conditional = splitCondition(path, parent, condName, condValue);
    if (conditional) {
        bool made = createNode(path);
        go = go && made;
    }
    const unsigned int wanted =
        static_cast<unsigned int>(std::count(flags.begin(), flags.end(), true));
    const bool attribute = last.length() > 0 && last[0] == '@';
    const bool parentHasText = parent != XString("");

    // An attribute target has exactly one parent per value.
    if (go && attribute && countNodes(parent) != wanted) {
        XLOG(log, LOG_TRACE, "Creating or removing parent nodes for " + str(path));
        std::vector<XString> blanks(wanted);
        std::vector<bool> all(wanted, true);
        go = setOrCreate(parent, blanks, all, false, false);
        if (countNodes(parent) != wanted) {
            XLOG(log, LOG_ERROR, "Attempt to adjust parent nodes for " + str(path) + " failed");
            return false;
        }
    }

    xmlXPathContextPtr ctx = nullptr;
    xmlXPathObjectPtr obj = nullptr;
    if (go) go = evalToContextAndObj(path, ctx, obj);
    unsigned int found = go ? nodeCount(obj) : 0;
    if (missing && !conditional && found > 0) {
        XLOG(log, LOG_ERROR, "Node to make is there already: " + str(path));
        freeEval(obj, ctx);
        return false;
    }

    if (go && found == 0 && !attribute && !(parentHasText && countNodes(parent) != 0)) {
        freeEval(obj, ctx);
        if (parentHasText) {
            if (retry) {  // made once and still not found: the engine won't select it
                XLOG(log, LOG_ERROR, "--failed to create parent: " + str(parent));
                return false;
            }
            if (!makeNode(parent, true)) return false;
            // With its parent made, the path may select a node now (".", for one).
            return setOrCreate(path, values, flags, true, false);
        }
        // The path names the root element; a document has one, and it is never replaced.
        if (xmlDocGetRootElement(doc)) {
            log(LOG_ERROR, "Attempt to create a new root node!");
            return false;
        }
        bool valued = wanted == 1 && flags[0] && !values[0].blank();
        if (!validName(last) || (valued && !validText(values[0]))) {
            XLOG(log, LOG_ERROR, "Invalid name or value for a new node: " + str(path));
            return false;
        }
        XLOG(log, LOG_TRACE, "Creating new root node: " + str(last));
        Answers::forget();
        xmlNodePtr root = xmlNewNode(nullptr, last);
        if (root == nullptr) return false;
        xmlDocSetRootElement(doc, root);
        if (valued) writeValue(root, values[0]);
        if (wanted <= 1) return true;
        log(LOG_ERROR, "Attempt to create >1 root nodes");
        return false;
    }

    // Moves to the next value that takes part; a value is used up by ++cursor.
    std::size_t cursor = 0;
    const XString none;
    auto nextValue = [&]() -> const XString& {
        while (cursor < flags.size() && !flags[cursor])
            ++cursor;
        return cursor < values.size() ? values[cursor] : none;
    };
    xmlNodeSetPtr set = go ? obj->nodesetval : nullptr;
    unsigned int visit = attribute ? found : std::min(found, wanted);
    bool result = go;

    // One value for the one attribute found: stored in place, where it stands.
    if (go && attribute && wanted == 1 && found == 1 && set->nodeTab[0] &&
        set->nodeTab[0]->type == XML_ATTRIBUTE_NODE) {
        xmlAttrPtr attr = reinterpret_cast<xmlAttrPtr>(set->nodeTab[0]);
        const XString& value = nextValue();
        Answers::forget();
        result = validText(value) && xmlSetNsProp(attr->parent, attr->ns, attr->name, value);
        if (!result) XLOG(log, LOG_ERROR, "Value can't be stored in " + str(path));
        freeEval(obj, ctx);
        return result;
    }

    // The root element is never erased: a document without one doesn't parse again. Checked
    // before anything is written, where nodes would really go: what an attribute target
    // found, and the surplus of an element target that has parents to work with.
    xmlNodePtr root = xmlDocGetRootElement(doc);
    bool erasing = attribute || (found > wanted && parentHasText);
    for (unsigned int i = attribute ? 0 : wanted; go && erasing && root && i < found; ++i) {
        if (set->nodeTab[i] == root) {
            log(LOG_ERROR, "Attempt to remove the root node!");
            freeEval(obj, ctx);
            return false;
        }
    }

    Overlaps overlaps(set);
    for (unsigned int i = 0; go && i < visit; ++i) {
        int at = static_cast<int>(i);
        if (overlaps.gone(at)) {  // went with a node written or removed before it
            if (!attribute) {
                nextValue();
                ++cursor;
            }
            continue;
        }
        xmlNodePtr node = set->nodeTab[i];
        if (node == nullptr) {
            XLOG(log, LOG_ERROR, "NULL nodes retrieved from: " + str(parent));
            result = false;
            break;
        }
        if (attribute) {
            if (!isDocument(node)) eraseEntry(set, at, overlaps);
            continue;
        }
        const XString& value = nextValue();
        overlaps.destroyed(at, true);
        if (!writeValue(node, value)) {
            XLOG(log, LOG_ERROR, "Value can't be stored in " + str(path));
            result = false;
            break;
        }
        ++cursor;
    }
    if (attribute) found = 0;  // what was found is gone

    if (found != wanted) {
        xmlXPathObjectPtr parents = nullptr;
        if (!result || !parentHasText || !evalToContextAndObj(parent, ctx, parents) ||
            !parents->nodesetval || !parents->nodesetval->nodeTab ||
            parents->nodesetval->nodeNr == 0) {
            XLOG(log, LOG_ERROR, "Could not retrieve parent node: " + str(parent));
            xmlXPathFreeObject(parents);
            result = false;
        } else if (found < wanted) {
            XLOG(log, LOG_TRACE, "Adding '" + str(last) + "' nodes to: " + str(parent));
            xmlNodeSetPtr to = parents->nodesetval;
            XString attrName = attribute ? last.substr(1) : XString();
            for (unsigned int i = found; i < wanted && result; ++i) {
                const XString& value = nextValue();
                ++cursor;
                void* made = nullptr;
                if (attribute)
                    made = static_cast<int>(i) < to->nodeNr
                               ? addAttribute(to->nodeTab[i], attrName, value)
                               : nullptr;
                else
                    made = addElement(to->nodeTab[0], last, value.blank() ? nullptr : &value);
                if (made == nullptr) {
                    XLOG(log, LOG_ERROR, "Failed to add nodes to: " + str(parent));
                    result = false;
                }
            }
            xmlXPathFreeObject(parents);
        } else {
            xmlXPathFreeObject(parents);
            XLOG(log, LOG_TRACE, "Removing nodes from: " + str(parent));
            for (unsigned int i = wanted; i < found; ++i) {
                int at = static_cast<int>(i);
                if (overlaps.gone(at) || (set->nodeTab[i] && isDocument(set->nodeTab[i]))) continue;
                if (set->nodeTab[i] == nullptr) {
                    XLOG(log, LOG_ERROR, "NULL nodes retrieved from: " + str(parent));
                    result = false;
                    break;
                }
                eraseEntry(set, at, overlaps);
            }
        }
    }
    freeEval(obj, ctx);
    return result;
}

// ---------------------------------------------------------------- deleting

bool XMLLoader::deletePath(const std::string& path) {
    auto log = logger.getFunctor<Logger::Id>("deletePath");
    MemoryWatch watch;
    XString xpath(path);
    XLOG(log, LOG_TRACE, "Erasing: " + path);
    xmlXPathContextPtr ctx = nullptr;
    xmlXPathObjectPtr obj = nullptr;
    if (!impl->evalToContextAndObj(xpath, ctx, obj)) return false;
    unsigned int count = nodeCount(obj);
    Overlaps overlaps(obj->nodesetval);
    for (unsigned int i = 0; i < count; ++i) {
        int at = static_cast<int>(i);
        if (!overlaps.gone(at) && obj->nodesetval->nodeTab[i])
            eraseEntry(obj->nodesetval, at, overlaps);
    }
    freeEval(obj, ctx);
    return watch.ok(count == 1);
}
