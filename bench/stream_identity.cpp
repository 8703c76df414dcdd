// stream_identity [-e EXPR]... [--tsv TABLE]... [FILE...]: checks that a streamed read gives
// what the tree gives. For each document and expression it runs XMLLoader::streamValues and,
// apart, loadFile(false) then writeValues, and compares what a user of the tool would see:
// the values written, libxml2's diagnostics, and the outcome (values, a file that doesn't
// load, an expression that fails). Runs that the stream hands to the tree are counted apart.
//
// The expressions are those given with -e, else a set that streams. The documents are the
// files named (or listed on standard input, one a line), read with each expression, and the
// rows of each table: a document, then the expressions to read it with, apart by tabs. In a table,
// \n, \t, \\ and \xHH escape bytes and {N*text} stands for text N times. Exits 1 when any run
// differs, 2 when nothing streamed at all or on a usage or I/O error.

#include <libxml/parser.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "cells.h"
#include "xmlloader.h"

namespace {

const char* const EXPRESSIONS[] = {
    "/*",      "/*/*",        "//*",         "//@*",         "//text()",
    "/*/*/@*", "//*[1]",      "//*[last()]", "/*/*[2]/@*",   "//*[@id]",
    "//*[*]",  "//*[not(*)]", "//*[text()]", "/*//*[@*][1]", "/*/*[last()]//text()"};

// What one road left: its outcome, the values written and the library's diagnostics.
struct Seen {
    std::string outcome, out, diagnostics;
    bool operator!=(const Seen& o) const {
        return outcome != o.outcome || out != o.out || diagnostics != o.diagnostics;
    }
};

// Runs read with the library's diagnostics and the values caught apart.
template <class Read>
Seen see(Read read) {
    Seen seen;
    char *out = nullptr, *diagnostics = nullptr;
    std::size_t outSize = 0, diagnosticsSize = 0;
    std::FILE* values = open_memstream(&out, &outSize);
    std::FILE* messages = open_memstream(&diagnostics, &diagnosticsSize);
    xmlSetGenericErrorFunc(messages, nullptr);  // the library's own handler, printing there
    seen.outcome = read(values);
    xmlSetGenericErrorFunc(nullptr, nullptr);
    std::fclose(values);
    std::fclose(messages);
    seen.out.assign(out, outSize);
    seen.diagnostics.assign(diagnostics, diagnosticsSize);
    std::free(out);
    std::free(diagnostics);
    return seen;
}

std::string excerpt(const std::string& text) {
    std::string out;
    for (unsigned char c : text.substr(0, 60))
        out += c == '\n'  ? std::string("\\n")
               : c < 0x20 ? std::string("?")
                          : std::string(1, char(c));
    return "'" + out + (text.size() > 60 ? "...'" : "'");
}

struct Tally {
    unsigned long runs = 0, streamed = 0, handed = 0, differing = 0;

    void check(const std::string& label, const std::string& file, const std::string& expression) {
        ++runs;
        Seen tree = see([&](std::FILE* out) {
            XMLLoader loader(file);
            if (!loader.loadFile(false)) return "unreadable";
            return loader.writeValues(expression, out) ? "values" : "bad xpath";
        });
        bool handedOver = false;
        Seen streamed = see([&](std::FILE* out) {
            switch (XMLLoader(file).streamValues(expression, out)) {
                case XMLLoader::STREAM_WRITTEN:
                    return "values";
                case XMLLoader::STREAM_UNREADABLE:
                    return "unreadable";
                case XMLLoader::STREAM_UNWRITABLE:
                    return "unwritable";
                case XMLLoader::STREAM_UNSUPPORTED:
                    break;
            }
            handedOver = true;
            return "handed to the tree";
        });
        if (handedOver && streamed.out.empty() && streamed.diagnostics.empty()) {
            ++handed;
            return;
        }
        ++this->streamed;
        if (!(tree != streamed)) return;
        if (++differing <= 20)
            std::cout << "DIFFERS " << label << " " << expression << ": tree " << tree.outcome
                      << " " << excerpt(tree.out) << " " << excerpt(tree.diagnostics) << ", stream "
                      << streamed.outcome << " " << excerpt(streamed.out) << " "
                      << excerpt(streamed.diagnostics) << "\n";
    }
};

}  // namespace

int main(int argc, char** argv) {
    XMLLoader keeper;  // keeps the library started, with the store's settings, to the end
    std::vector<std::string> expressions, files, tables;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if ((arg == "-e" || arg == "--tsv") && i + 1 < argc)
            (arg == "-e" ? expressions : tables).push_back(argv[++i]);
        else
            files.push_back(arg);
    }
    if (expressions.empty()) expressions.assign(std::begin(EXPRESSIONS), std::end(EXPRESSIONS));
    if (files.empty() && tables.empty())
        for (std::string line; std::getline(std::cin, line);)
            if (!line.empty()) files.push_back(line);

    Tally tally;
    for (const std::string& file : files)
        for (const std::string& e : expressions)
            tally.check(file, file, e);

    char dir[] = "/tmp/xpath-stream-identity.XXXXXX";
    if (mkdtemp(dir) == nullptr) return 2;
    const std::string scratch = std::string(dir) + "/document.xml";
    int status = 0;
    for (const std::string& table : tables) {
        std::ifstream in(table);
        if (!in) status = 2;
        unsigned row = 0;
        for (std::string line; std::getline(in, line);) {
            if (line.empty() || line[0] == '#') continue;
            std::vector<std::string> cells;
            for (std::size_t at = 0; at != std::string::npos;) {
                std::size_t tab = line.find('\t', at);
                cells.push_back(
                    bench::unescape(line.substr(at, tab == std::string::npos ? tab : tab - at)));
                at = tab == std::string::npos ? tab : tab + 1;
            }
            std::ofstream(scratch, std::ios::binary) << cells[0];
            ++row;
            for (const std::string& e : std::vector<std::string>(cells.begin() + 1, cells.end()))
                tally.check(table + " row " + std::to_string(row), scratch, e);
        }
    }
    unlink(scratch.c_str());
    rmdir(dir);
    std::cout << "stream identity: " << tally.runs << " runs, " << tally.streamed << " streamed, "
              << tally.handed << " handed to the tree, " << tally.differing << " differing\n";
    if (tally.differing) return 1;
    return tally.streamed == 0 ? 2 : status;
}
