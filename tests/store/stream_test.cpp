#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "../common/table.h"
#include "xmlloader.h"

namespace {

// "{N*text}" in a cell: text N times.
std::string repeated(const std::string& cell) {
    const std::size_t open = cell.find('{'), star = cell.find('*', open),
                      close = cell.find('}', star);
    if (close == std::string::npos) return cell;
    std::string text = cell.substr(0, open);
    for (long n = std::stol(cell.substr(open + 1, star - open - 1)); n > 0; --n)
        text += cell.substr(star + 1, close - star - 1);
    return text + repeated(cell.substr(close + 1));
}

// streamValues on a file: which paths and documents stream (the others come back untouched,
// for the tree), and what a streamed read prints, which must be what the tree prints.
TEST(Stream, WhatStreamsAndWhatItPrints) {
    char dir[] = "/tmp/xpath-stream-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string file = std::string(dir) + "/f.xml";
    for (Row row : readTable("stream.tsv")) {
        SCOPED_TRACE(row[0] + "  " + row[1]);
        row[0] = repeated(row[0]), row[3] = repeated(row[3]);
        std::ofstream(file, std::ios::binary) << row[0];
        XMLLoader loader(file);
        XMLLoader::StreamResult result = XMLLoader::STREAM_UNWRITABLE;
        bool ok;
        const std::string out = captured(
            [&](std::FILE* f) { return (result = loader.streamValues(row[1], f)), true; }, ok);
        const char* how = result == XMLLoader::STREAM_WRITTEN       ? "streams"
                          : result == XMLLoader::STREAM_UNSUPPORTED ? "tree"
                                                                    : "fails";
        EXPECT_EQ(how, row[2]);
        std::string tree;
        XMLLoader again(file);
        if (again.loadFile(false))
            tree = captured([&](std::FILE* f) { return again.writeValues(row[1], f); }, ok);
        EXPECT_EQ(out, result == XMLLoader::STREAM_WRITTEN ? tree : "");
        EXPECT_EQ(tree, row[3]);
    }
    unlink(file.c_str());
    rmdir(dir);
}

}  // namespace
