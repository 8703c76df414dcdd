// floor_sax <file>: the least a streamed read can do with libxml2. It sets up the library the
// way the store does and parses the file as the store's read does (the same entry, the same
// options) with callbacks that do nothing: no values, no output. The benchmark compares the
// tool's streamed reads with it.

#include <libxml/parserInternals.h>

#include "floor.h"

namespace {

void start(void*, const xmlChar*, const xmlChar*, const xmlChar*, int, const xmlChar**, int, int,
           const xmlChar**) {}
void end(void*, const xmlChar*, const xmlChar*, const xmlChar*) {}
void text(void*, const xmlChar*, int) {}
void comment(void*, const xmlChar*) {}
void instruction(void*, const xmlChar*, const xmlChar*) {}

}  // namespace

int main(int argc, char** argv) {
    floors::setUp(argc, "floor_sax", 1, "<file>");
    const int options = XML_PARSE_COMPACT | XML_PARSE_NOBLANKS;
    xmlParserCtxtPtr ctxt = xmlCreateURLParserCtxt(argv[1], options);
    if (ctxt == nullptr) return 1;
    xmlCtxtUseOptions(ctxt, options);
    xmlSAXHandlerPtr sax = ctxt->sax;
    sax->startElementNs = start;
    sax->endElementNs = end;
    sax->characters = sax->cdataBlock = text;
    sax->comment = comment;
    sax->processingInstruction = instruction;
    xmlParseDocument(ctxt);
    const int status = ctxt->wellFormed ? 0 : 1;
    xmlFreeDoc(ctxt->myDoc);
    xmlFreeParserCtxt(ctxt);
    return status;
}
