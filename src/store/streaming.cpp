#include "streaming.h"

#include <libxml/parserInternals.h>
#include <sys/stat.h>

#include <cerrno>

#include "common.h"
#include "parsing.h"
#include "reader.h"

namespace xpath_store {

namespace {

// The parser's calls, handed to the reader of the read until it has handed the file over.
Reader* readerOf(void* ctx) {
    Reader* reader = static_cast<Reader*>(static_cast<xmlParserCtxtPtr>(ctx)->_private);
    return reader->unsupported ? nullptr : reader;
}

void onStart(void* ctx, const xmlChar* localname, const xmlChar* prefix, const xmlChar* uri, int,
             const xmlChar**, int count, int, const xmlChar** attributes) {
    if (Reader* r = readerOf(ctx)) r->start(localname, prefix, uri, count, attributes);
}
void onEnd(void* ctx, const xmlChar*, const xmlChar*, const xmlChar*) {
    if (Reader* r = readerOf(ctx)) r->end();
}
void onText(void* ctx, const xmlChar* bytes, int n) {
    if (Reader* r = readerOf(ctx)) r->characters(bytes, n, false);
}
void onCdata(void* ctx, const xmlChar* bytes, int n) {
    if (Reader* r = readerOf(ctx)) r->characters(bytes, n, true);
}
void onComment(void* ctx, const xmlChar* value) {
    if (Reader* r = readerOf(ctx)) r->leaf(value, nullptr);
}
void onInstruction(void* ctx, const xmlChar* target, const xmlChar* data) {
    if (Reader* r = readerOf(ctx)) r->leaf(data, target);
}
// A DTD, or an entity that only a DTD could declare: the tree reads the file.
void onSubset(void* ctx, const xmlChar*, const xmlChar*, const xmlChar*) {
    if (Reader* r = readerOf(ctx)) r->giveUp();
}
void onReference(void* ctx, const xmlChar*) {
    if (Reader* r = readerOf(ctx)) r->giveUp();
}

}  // namespace

Streamed streamValues(const std::string& file, const std::string& expression, std::FILE* out) {
    Plan plan;
    if (!planStream(expression, plan)) return Streamed::unsupported;
    if (!Predicate(expression).ok()) return Streamed::unsupported;  // the tree reports it
    // A file that is not there, or could not be read twice, is the tree's to report.
    struct stat info;
    const int options = leanParseOptions();
    if (stat(file.c_str(), &info) != 0 || !S_ISREG(info.st_mode) ||
        (options & ~(XML_PARSE_COMPACT | XML_PARSE_NOBLANKS | XML_PARSE_NOENT)) ||
        xmlLoadExtDtdDefaultValue != 0)
        return Streamed::unsupported;
    HeldDiagnostics diagnostics;
    if (!diagnostics.holding()) return Streamed::unsupported;
    Held done(8 << 20);
    Ordered output(done);
    Source source(file);
    xmlParserCtxtPtr ctxt = source.opened() ? openParser(source, file) : nullptr;
    if (ctxt == nullptr) {
        diagnostics.release();
        return Streamed::unreadable;
    }
    xmlCtxtUseOptions(ctxt, options);
    Reader reader(plan, ctxt, output);
    xmlSAXHandlerPtr sax = ctxt->sax;
    sax->startElementNs = onStart;
    sax->endElementNs = onEnd;
    if (sax->ignorableWhitespace == sax->characters) sax->ignorableWhitespace = onText;
    sax->characters = onText;
    sax->cdataBlock = onCdata;
    sax->comment = onComment;
    sax->processingInstruction = onInstruction;
    sax->internalSubset = sax->externalSubset = onSubset;
    sax->reference = onReference;
    ctxt->_private = &reader;
    const bool compiled = reader.compiled();
    if (compiled) xmlParseDocument(ctxt);
    const bool parsed = (ctxt->wellFormed || ctxt->recovery) && reader.sawRoot &&
                        !MemoryWatch::ranOut() && !source.failed();
    const bool unsupported = reader.unsupported || !compiled;
    ctxt->node = nullptr;
    xmlFreeDoc(ctxt->myDoc);  // the empty document the parser consults, as the tree's parse does
    ctxt->myDoc = nullptr;
    xmlFreeParserCtxt(ctxt);
    if (unsupported) {
        diagnostics.discard();
        return Streamed::unsupported;
    }
    diagnostics.release();
    if (!parsed) return Streamed::unreadable;
    if (!output.ok()) {
        errno = output.failure();
        return Streamed::unwritable;
    }
    return done.writeTo(out) ? Streamed::written : Streamed::unwritable;
}

}  // namespace xpath_store
