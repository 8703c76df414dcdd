// The store's public face: the handle and its implementation's lifetime, the library's start
// and stop, copying and comparing, and the handle's own operations. The work lies in the
// units beside this file: evaluation, values, paths, setting, editing, rules, parsing, saving.

#include "xmlloader.h"

#include <libxml/parser.h>
#include <sys/stat.h>

#include "common.h"
#include "editing.h"
#include "evaluation.h"
#include "parsing.h"
#include "saving.h"
#include "streaming.h"

using namespace xpath_store;

// Built first: it only stores the address of its parent, which comes up next.
Logger XMLLoaderImpl::logger("XMLLoaderImpl", &XMLLoader::logger);
Logger XMLLoader::logger("XMLLoader", nullptr);

std::uint32_t XMLLoaderImpl::references = 0;

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
    impl->doc = readMemory(buffer, static_cast<int>(size));
    return impl->doc != nullptr;
}

bool XMLLoader::saveFile() const {
    auto log = logger.getFunctor<Logger::Id>("saveFile");
    MemoryWatch watch;
    XLOG(log, LOG_TRACE, "Saving file: " + impl->filename);
    xmlKeepBlanksDefault(0);
    return impl->doc != nullptr && saveDocument(impl->doc, impl->filename);
}

// ---------------------------------------------------------------- forwarding

bool XMLLoader::getVectorImpl(const XString& path, std::vector<XString>& values,
                              unsigned int max) const {
    return impl->getVector(path, values, max);
}

bool XMLLoader::writeValues(const std::string& path, std::FILE* out) const {
    return impl->writeValues(XString(path), out);
}

XMLLoader::StreamResult XMLLoader::streamValues(const std::string& path, std::FILE* out) const {
    auto log = logger.getFunctor<Logger::Id>("streamValues");
    MemoryWatch watch;
    XLOG(log, LOG_TRACE, "Streaming " + path + " from " + impl->filename);
    switch (xpath_store::streamValues(impl->filename, path, out)) {
        case Streamed::written:
            return STREAM_WRITTEN;
        case Streamed::unreadable:
            return STREAM_UNREADABLE;
        case Streamed::unwritable:
            return STREAM_UNWRITABLE;
        case Streamed::unsupported:
            break;
    }
    return STREAM_UNSUPPORTED;
}

bool XMLLoader::setOrCreateVectorImpl(const XString& path, const std::vector<XString>& values,
                                      const std::vector<bool>& flags) {
    return impl->setOrCreateVector(path, values, flags);
}

// ---------------------------------------------------------------- deleting

bool XMLLoader::deletePath(const std::string& path) {
    auto log = logger.getFunctor<Logger::Id>("deletePath");
    MemoryWatch watch;
    XString xpath(path);
    XLOG(log, LOG_TRACE, "Erasing: " + path);
    Evaluation found(*impl, xpath);
    if (!found.ok()) return false;
    unsigned int count = found.count();
    xmlNodeSetPtr set = found.nodes();
    Overlaps overlaps(set);
    for (unsigned int i = 0; i < count; ++i) {
        int at = static_cast<int>(i);
        if (!overlaps.gone(at) && set->nodeTab[i]) eraseEntry(set, at, overlaps);
    }
    found.release();
    return watch.ok(count == 1);
}
