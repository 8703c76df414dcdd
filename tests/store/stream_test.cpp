#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "../common/files.h"
#include "../common/table.h"
#include "xmlloader.h"

namespace {

// streamValues on a file: which paths and documents stream (the others come back untouched,
// for the tree), and what a streamed read prints, which must be what the tree prints.
TEST(Stream, WhatStreamsAndWhatItPrints) {
    char dir[] = "/tmp/xpath-stream-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string file = std::string(dir) + "/f.xml";
    for (const Row& row : readTable("stream.tsv")) {
        SCOPED_TRACE(row[0] + "  " + row[1]);
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
