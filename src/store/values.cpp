// Node values: what a selected node reads as, gathered into XStrings or written straight out.

#include <cstring>

#include "common.h"
#include "evaluation.h"
#include "xmlloader.h"

using namespace xpath_store;

namespace {

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

XString nodeValue(xmlNodePtr node, bool& ok) {
    // A namespace node is a different record: its links are not children and siblings.
    if (node->type == XML_NAMESPACE_DECL) return XString(reinterpret_cast<xmlNsPtr>(node)->href);
    if (xmlNodeIsText(node)) return XString(xmlNodeGetContent(node), true);
    return childrenValue(node, ok);
}

// Writes a node's value (nodeValue's bytes) and a newline to out, piece by piece from the
// document: a large value is never gathered. Pieces go out in blocks, not one stdio call each.
class ValueWriter {
  public:
    explicit ValueWriter(std::FILE* out) : out(out) {}
    ~ValueWriter() { flush(); }
    ValueWriter(const ValueWriter&) = delete;
    ValueWriter& operator=(const ValueWriter&) = delete;

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
                write(text, n);
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
        if (used) write(block, used);
        used = 0;
    }
    // After a failed write nothing more is tried: the stream keeps its error for the caller.
    void write(const void* bytes, std::size_t n) {
        failed = failed || std::fwrite(bytes, 1, n, out) != n;
    }

    std::FILE* out;
    bool failed = false;
    std::size_t used = 0;
    char block[1 << 15];
};

// Evaluates path and hands each selected node (the first max; all when max is 0) to visit,
// in order: the common way of getVector and writeValues, with the same log lines.
template <class Visit>
bool eachNode(const XMLLoaderImpl& impl, const XString& path, unsigned int max, Visit visit) {
    auto log = XMLLoaderImpl::logger.getFunctor<Logger::Id>("getVector");
    MemoryWatch watch;
    XLOG(log, LOG_TRACE, "getVector: " + str(path));
    Evaluation found(impl, path);
    if (!found.ok()) return false;
    unsigned int count = found.count();
    if (max != 0 && max < count) count = max;
    bool ok = true;
    for (unsigned int i = 0; i < count && ok; ++i) {
        xmlNodePtr node = found.nodes()->nodeTab[i];
        if (node == nullptr) {
            XLOG(log, LOG_ERROR,
                 "NULL node when evaluating " + str(path) + "(" + std::to_string(i) + ")");
            ok = false;
            break;
        }
        visit(node, count, ok);
    }
    found.release();
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
