#include <gtest/gtest.h>

#include "store_fixture.h"

namespace {

// The root afterwards: "=" as before, "*" not looked at.
void expectRoot(const Doc& doc, const std::string& before, const std::string& expected) {
    if (expected != "*") {
        EXPECT_EQ(doc.text(), expected == "=" ? before : expected);
    }
}

void fitsTable(const char* table) {
    for (const Row& row : readTable(table)) {
        SCOPED_TRACE(row[0] + "  " + row[1] + "  " + row[2]);
        Doc doc(row[0].c_str());
        std::string before = doc.text();
        std::vector<XString> values;
        std::vector<bool> flags;
        for (const std::string& v : parts(row[2])) {
            values.push_back(v == "(none)" ? XString() : XString(v));
            flags.push_back(row[3].empty() || row[3][flags.size()] == 'T');
        }
        EXPECT_EQ(doc.impl.setOrCreateVector(XString(row[1]), values, flags), row[4] == "true");
        expectRoot(doc, before, row[5]);
    }
}

TEST(Set, FitsTheDocumentToThePathAndValues) {
    fitsTable("set.tsv");
}

// Cases that fuzzing found.
TEST(Regression, Set) {
    fitsTable("set_regression.tsv");
}

TEST(Set, PathsTooDeepToReadBackAreRefused) {
    std::string path;
    for (int i = 0; i < 257; ++i)
        path += "/d";
    Doc doc("");
    EXPECT_TRUE(doc.impl.setOrCreateVector(XString(path), {XString("v")}, {true}));
    EXPECT_FALSE(doc.impl.setOrCreateVector(XString(path + "/d"), {XString("v")}, {true}));
    EXPECT_FALSE(Doc("").impl.setOrCreateVector(XString(path + path), {XString("v")}, {true}));
    // A condition's child element goes a level below the new element: nothing is made.
    std::string deepest = path.substr(0, 2 * 256);
    ASSERT_TRUE(doc.impl.setOrCreateVector(XString(deepest), {XString()}, {true}));
    std::string before = doc.text();
    EXPECT_FALSE(
        doc.impl.setOrCreateVector(XString(deepest + "/b[c=\"1\"]/x"), {XString("v")}, {true}));
    EXPECT_EQ(doc.text(), before);
}

TEST(Create, MakesTheNodeThatAPathAsksFor) {
    for (const Row& row : readTable("create.tsv")) {
        SCOPED_TRACE(row[0] + "  " + row[1]);
        Doc doc(row[0].c_str());
        std::string before = doc.text();
        EXPECT_EQ(doc.impl.createNode(XString(row[1])), row[2] == "true");
        expectRoot(doc, before, row[3]);
    }
}

TEST(Set, TypedValues) {
    XMLLoader loader;
    const char xml[] = "<a/>";
    ASSERT_TRUE(loader.loadArray(xml, sizeof xml - 1));
    char value[] = "v";
    EXPECT_TRUE(loader.setOrCreateVector("/a/@k", std::vector<char*>{value}));
    EXPECT_TRUE(loader.setOrCreateVector("/a/@e", std::vector<char*>{nullptr}));
    EXPECT_TRUE(loader.setOrCreateVector("/a/n", std::vector<int>{42}));
    EXPECT_FALSE(loader.setOrCreateVector("/a", std::vector<std::string>{}));
    std::vector<std::string> read;
    EXPECT_TRUE(loader.getVector("/a/@k|/a/@e|/a/n", read));
    EXPECT_EQ(read, (std::vector<std::string>{"v", "", "42"}));
}

}  // namespace
