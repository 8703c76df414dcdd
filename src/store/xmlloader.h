#ifndef XPATH_XMLLOADER_H
#define XPATH_XMLLOADER_H

// XMLLoader is the handle of one XML document and the file it belongs to: load, read and
// set values by XPath, delete, save. XMLLoaderImpl holds the document and does the work.

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "object.h"
#include "trace.h"
#include "xstring.h"

class XMLLoaderImpl : public Object {
  public:
    XMLLoaderImpl();
    explicit XMLLoaderImpl(const char* name);
    XMLLoaderImpl(const XMLLoaderImpl& o);
    XMLLoaderImpl& operator=(const XMLLoaderImpl& o);
    bool operator==(const XMLLoaderImpl& o) const;
    virtual ~XMLLoaderImpl();

    // The first living object starts libxml2 and its process-wide settings; the last stops it.
    static void start();
    static void stop();

    // Evaluates path; after true the caller frees ctx and obj, after false there is nothing.
    bool evalToContextAndObj(const XString& path, xmlXPathContextPtr& ctx,
                             xmlXPathObjectPtr& obj) const;
    unsigned int countNodes(const XString& path) const;
    // Appends the value of each selected node (all of them when max is 0).
    bool getVector(const XString& path, std::vector<XString>& values, unsigned int max) const;
    // Writes what getVector would append to out, each value and a newline, without holding it.
    bool writeValues(const XString& path, std::FILE* out) const;

    static bool splitPath(const XString& path, XString& parent, XString& node);
    static bool splitCondition(const XString& path, XString& node, XString& name, XString& value);

    bool createNode(const XString& path);
    bool setOrCreateVector(const XString& path, const std::vector<XString>& values,
                           const std::vector<bool>& flags);

    std::string filename;
    xmlDocPtr doc;

    static std::uint32_t references;
    static Logger logger;
};

class XMLLoader : public Object {
  public:
    XMLLoader();
    explicit XMLLoader(const char* name);
    explicit XMLLoader(const std::string& name);
    XMLLoader(const XMLLoader& o);
    XMLLoader& operator=(const XMLLoader& o);
    bool operator==(const XMLLoader& o) const;
    virtual ~XMLLoader();

    static Logger& getLogger();

    // create: start an empty document when the file isn't there.
    bool loadFile(bool create);
    bool loadArray(const char* buffer, unsigned int size);
    // Writes the document to the file it was loaded from, formatted and in UTF-8.
    bool saveFile() const;

    // Replaces values with the value of each node that path selects (all when max is 0).
    template <class T>
    bool getVector(const std::string& path, std::vector<T>& values, unsigned int max = 0) const;
    // Fits the document to path: one node per value, made where missing, removed in surplus.
    template <class T>
    bool setOrCreateVector(const std::string& path, const std::vector<T>& values);

    // Writes the value of each node that path selects to out, each followed by a newline,
    // straight from the document: getVector's values without holding them all at once.
    bool writeValues(const std::string& path, std::FILE* out) const;

    // What streamValues did.
    enum StreamResult {
        STREAM_WRITTEN,      // the values are in out
        STREAM_UNSUPPORTED,  // the path or the file needs the tree: nothing was read or printed
        STREAM_UNREADABLE,   // the file isn't there or doesn't parse, as for loadFile(false)
        STREAM_UNWRITABLE,   // out, or the place the values wait in, failed: errno says why
    };
    // Writes to out what loadFile(false) and then writeValues(path, out) would, libxml2's
    // diagnostics included, reading the file without building its tree: memory doesn't grow
    // with the file. Only some paths stream; the others give STREAM_UNSUPPORTED. The loader's
    // own document is left as it is.
    StreamResult streamValues(const std::string& path, std::FILE* out) const;

    bool getVectorImpl(const XString& path, std::vector<XString>& values, unsigned int max) const;
    bool setOrCreateVectorImpl(const XString& path, const std::vector<XString>& values,
                               const std::vector<bool>& flags);

    // Erases every node that path selects; true when exactly one was selected.
    bool deletePath(const std::string& path);

    static Logger logger;

  private:
    XMLLoaderImpl* impl;
};

namespace xmlloader_detail {

// The text form of a value: its stream output, with a direct way for strings.
template <class T>
std::string textOf(const T& value) {
    std::ostringstream out;
    out << value;
    return out.str();
}
inline const std::string& textOf(const std::string& value) {
    return value;
}
inline std::string textOf(const char* value) {
    return value ? value : "";
}
inline std::string textOf(char* value) {
    return textOf(static_cast<const char*>(value));
}

}  // namespace xmlloader_detail

template <class T>
bool XMLLoader::getVector(const std::string& path, std::vector<T>& values, unsigned int max) const {
    std::vector<XString> found;
    bool ok;
    {
        XString xpath(path);
        ok = getVectorImpl(xpath, found, max);
    }
    values.resize(found.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        values[i] = found[i].stringValue(T());
        found[i] = XString();  // release each buffer once copied, so two copies never pile up
    }
    return ok;
}

template <class T>
bool XMLLoader::setOrCreateVector(const std::string& path, const std::vector<T>& values) {
    std::vector<XString> texts;
    std::vector<bool> flags;
    texts.reserve(values.size());
    flags.reserve(values.size());
    for (const T& value : values) {
        const std::string& text = xmlloader_detail::textOf(value);
        texts.emplace_back(text);
        if (texts.back().blank() != text.empty()) return false;  // the copy ran out of memory
        flags.push_back(true);
    }
    XString xpath(path);
    return (xpath.blank() == path.empty()) && setOrCreateVectorImpl(xpath, texts, flags);
}

#endif
