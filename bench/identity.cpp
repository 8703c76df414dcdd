// identity [--files | --upto-nul | --tsv] FILE...: checks, for each document, that the store's
// parse (XMLLoader::loadFile) gives what the library's plain parse (xmlParseFile, under the
// settings the store makes) gives: the same success, the same diagnostics from the library,
// the same values of generic expressions (read with getVector on both documents) and the same
// bytes once saved (the store's saveFile against xmlSaveFormatFileEnc(..., "UTF-8", 1)).
//
// The documents are the files named (--files, the default), the bytes of each file up to its
// first NUL (--upto-nul: the inputs of the fuzz targets), or the first column of each row of
// a test table (--tsv); a switch applies to the names after it. With no names at all, they are
// read from standard input, one a line. Prints each difference and a summary; exits 1 when
// any document differs, 2 on a usage or I/O error.

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "cells.h"
#include "xmlloader.h"

namespace {

// What the library reported since the last clear. Only this program collects them: the
// store leaves the library's handler alone.
std::string diagnostics;

void collect(void*, const char* format, ...) {
    va_list args, again;
    va_start(args, format);
    va_copy(again, args);
    int n = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    if (n > 0) {
        std::vector<char> text(static_cast<std::size_t>(n) + 1);
        std::vsnprintf(text.data(), text.size(), format, again);
        diagnostics.append(text.data(), static_cast<std::size_t>(n));
    }
    va_end(again);
}

const char* const EXPRESSIONS[] = {"/",         "//node()",  "//@*",
                                   "//namespace::*", "//text()", "//comment()",
                                   "//processing-instruction()"};

bool readBytes(const std::string& file, std::string& bytes) {
    std::ifstream in(file, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad() && in.is_open();
}

bool writeBytes(const std::string& file, const std::string& bytes) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    return !out.fail();
}

// A short, printable excerpt of a text for the report.
std::string excerpt(const std::string& text) {
    std::string out;
    for (unsigned char c : text.substr(0, 70))
        out += c == '\n' ? std::string("\\n") : c < 0x20 ? std::string("?") : std::string(1, char(c));
    return "'" + out + (text.size() > 70 ? "...'" : "'");
}

// Where two texts first differ, for the report.
std::string firstDifference(const std::string& a, const std::string& b) {
    std::size_t i = 0;
    while (i < a.size() && i < b.size() && a[i] == b[i])
        ++i;
    std::size_t from = i > 20 ? i - 20 : 0;
    return "at byte " + std::to_string(i) + ": plain " + excerpt(a.substr(from)) + ", store " +
           excerpt(b.substr(from));
}

std::vector<std::string> values(const XMLLoaderImpl& doc, const char* expression, bool& ok) {
    std::vector<XString> found;
    ok = doc.getVector(XString(expression), found, 0);
    std::vector<std::string> out;
    out.reserve(found.size());
    for (const XString& value : found)
        out.push_back(value.stringValue(std::string()));
    return out;
}

// The first difference between the plain parse and the store's parse of path, or "".
std::string compare(const std::string& path, const std::string& scratch, bool& parsed) {
    diagnostics.clear();
    XMLLoaderImpl plain;  // owns the plain document from here on
    plain.doc = xmlParseFile(path.c_str());
    const std::string plainDiagnostics = diagnostics;

    diagnostics.clear();
    XMLLoader store(path);
    const bool loaded = store.loadFile(false);
    const std::string storeDiagnostics = diagnostics;

    parsed = loaded;
    if (loaded != (plain.doc != nullptr))
        return std::string("parse: plain ") + (plain.doc ? "succeeds" : "fails") + ", store " +
               (loaded ? "succeeds" : "fails");
    if (plainDiagnostics != storeDiagnostics)
        return "diagnostics " + firstDifference(plainDiagnostics, storeDiagnostics);
    if (!loaded) return "";

    for (const char* expression : EXPRESSIONS) {
        bool plainOk = false;
        std::vector<std::string> want = values(plain, expression, plainOk);
        std::vector<XString> raw;
        bool storeOk = store.getVectorImpl(XString(expression), raw, 0);
        std::vector<std::string> got;
        for (const XString& value : raw)
            got.push_back(value.stringValue(std::string()));
        if (plainOk != storeOk || want.size() != got.size())
            return std::string(expression) + ": plain " + std::to_string(want.size()) +
                   " values, store " + std::to_string(got.size());
        for (std::size_t i = 0; i < want.size(); ++i)
            if (want[i] != got[i])
                return std::string(expression) + " value " + std::to_string(i) + " " +
                       firstDifference(want[i], got[i]);
    }

    // The saves: the plain document through the library's own call; the store's saveFile
    // writes the file it loaded, so it loads a copy of the document.
    const std::string plainSaved = scratch + ".plain", storeSaved = scratch + ".store";
    std::string bytes, plainBytes, storeBytes;
    if (xmlSaveFormatFileEnc(plainSaved.c_str(), plain.doc, "UTF-8", 1) < 0 ||
        !readBytes(plainSaved, plainBytes))
        return "save: the plain document can't be saved";
    if (!readBytes(path, bytes) || !writeBytes(storeSaved, bytes))
        return "save: no copy of the document for the store";
    diagnostics.clear();
    XMLLoader copy(storeSaved);
    if (!copy.loadFile(false) || !copy.saveFile() || !readBytes(storeSaved, storeBytes))
        return "save: the store's copy can't be loaded or saved";
    unlink(plainSaved.c_str());
    unlink(storeSaved.c_str());
    if (plainBytes != storeBytes) return "saved bytes " + firstDifference(plainBytes, storeBytes);
    return "";
}

// The first column of each row of a test table: rows apart by lines, '#' starts a comment,
// the fields are apart by tabs, "-" is empty, escapes as in bench/cells.h.
std::vector<std::string> tableDocuments(const std::string& table) {
    std::vector<std::string> documents;
    std::ifstream in(table);
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::string field = line.substr(0, line.find('\t'));
        documents.push_back(field == "-" ? std::string() : bench::unescape(field));
    }
    return documents;
}

}  // namespace

int main(int argc, char** argv) {
    XMLLoader keeper;  // keeps the library started, with the store's settings, to the end
    xmlSetGenericErrorFunc(nullptr, collect);

    char dir[] = "/tmp/xpath-identity.XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        std::perror("identity: mkdtemp");
        return 2;
    }
    const std::string scratch = std::string(dir) + "/document.xml";

    // (name for the report, file to parse): documents from tables and fuzz inputs are
    // written to the scratch file first.
    std::vector<std::string> names;
    std::string mode = "--files";
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--files" || arg == "--upto-nul" || arg == "--tsv")
            mode = arg;
        else
            names.push_back(mode + "\t" + arg);
    }
    if (argc == 1)
        for (std::string line; std::getline(std::cin, line);)
            if (!line.empty()) names.push_back("--files\t" + line);

    unsigned long files = 0, equal = 0, parsed = 0, differing = 0;
    auto check = [&](const std::string& label, const std::string& path) {
        bool ok = false;
        std::string difference = compare(path, scratch, ok);
        ++files;
        if (difference.empty()) {
            ++equal;
            parsed += ok;
        } else {
            ++differing;
            std::cout << "DIFFERS " << label << ": " << difference << "\n";
        }
    };
    int status = 0;
    for (const std::string& entry : names) {
        std::string how = entry.substr(0, entry.find('\t')), name = entry.substr(how.size() + 1);
        std::string bytes;
        if (how == "--files") {
            check(name, name);
        } else if (how == "--upto-nul") {
            if (!readBytes(name, bytes) || !writeBytes(scratch, bytes.substr(0, bytes.find('\0')))) {
                std::cerr << "identity: can't read " << name << "\n";
                status = 2;
                continue;
            }
            check(name, scratch);
        } else {
            std::vector<std::string> documents = tableDocuments(name);
            if (documents.empty()) {  // a missing or empty table isn't a pass
                std::cerr << "identity: no documents in " << name << "\n";
                status = 2;
            }
            for (std::size_t row = 0; row < documents.size(); ++row) {
                if (!writeBytes(scratch, documents[row])) status = 2;
                check(name + " row " + std::to_string(row + 1), scratch);
            }
        }
    }
    unlink(scratch.c_str());
    rmdir(dir);
    std::cout << "identity: " << files << " documents, " << equal << " equal (" << parsed
              << " parsed, " << equal - parsed << " refused by both), " << differing
              << " differing\n";
    if (files == 0 && status == 0) status = 2;
    return differing ? 1 : status;
}
