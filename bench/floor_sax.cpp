// floor_sax <file>: the least a streamed read can do with libxml2. It sets up the library the
// way the store does and parses the file as the store's read does (the same entry, the same
// options; the file's bytes read plainly) with callbacks that do nothing: no values, no output.
// The benchmark compares the tool's streamed reads with it.

#include <fcntl.h>
#include <libxml/parserInternals.h>
#include <unistd.h>

#include "floor.h"

namespace {

void start(void*, const xmlChar*, const xmlChar*, const xmlChar*, int, const xmlChar**, int, int,
           const xmlChar**) {}
void end(void*, const xmlChar*, const xmlChar*, const xmlChar*) {}
void text(void*, const xmlChar*, int) {}
void comment(void*, const xmlChar*) {}
void instruction(void*, const xmlChar*, const xmlChar*) {}
int readFd(void* fd, char* buffer, int size) {
    return static_cast<int>(read(*static_cast<int*>(fd), buffer, static_cast<std::size_t>(size)));
}

}  // namespace

int main(int argc, char** argv) {
    floors::setUp(argc, "floor_sax", 1, "<file>");
    const int options = XML_PARSE_COMPACT | XML_PARSE_NOBLANKS;
    int fd = open(argv[1], O_RDONLY);
    xmlParserCtxtPtr ctxt = fd < 0 ? nullptr
                                   : xmlCreateIOParserCtxt(nullptr, nullptr, readFd, nullptr, &fd,
                                                           XML_CHAR_ENCODING_NONE);
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
