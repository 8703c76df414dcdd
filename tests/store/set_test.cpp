#include <gtest/gtest.h>

#include "store_fixture.h"

namespace {

struct SetCase {
    const char* xml;  // "" is a document with no root
    const char* path;
    std::vector<const char*> values;  // nullptr is a value with no text
    const char* flags;                // "" is all true, else one T or F per value
    bool ok;
    const char* expected;  // the root afterwards; "=" unchanged, "*" not looked at
};

void check(const SetCase& c) {
    SCOPED_TRACE(std::string(c.xml) + "  " + c.path);
    Doc doc(c.xml);
    std::string before = doc.text();
    std::vector<XString> values;
    std::vector<bool> flags;
    for (std::size_t i = 0; i < c.values.size(); ++i) {
        values.push_back(c.values[i] ? XString(std::string(c.values[i])) : XString());
        flags.push_back(*c.flags == 0 || c.flags[i] == 'T');
    }
    EXPECT_EQ(doc.impl.setOrCreateVector(XString(c.path), values, flags), c.ok);
    std::string expected = c.expected;
    if (expected == "=") expected = before;
    if (expected != "*") {
        EXPECT_EQ(doc.text(), expected);
    }
}

TEST(Set, OneValue) {
    const SetCase cases[] = {
        {"", "/a/b/c", {"1"}, "", true, "<a><b><c>1</c></b></a>"},
        {"<a/>", "/a/b[@id=\"2\"]/c", {"x"}, "", true, "<a><b id=\"2\"><c>x</c></b></a>"},
        {"<a><b id=\"2\"/></a>",
         "/a/b[@id=\"2\"]/c",
         {"x"},
         "",
         true,
         "<a><b id=\"2\"><c>x</c></b></a>"},
        {"<a><b id=\"1\"/></a>",
         "/a/b[@id=\"2\"]/c",
         {"x"},
         "",
         true,
         "<a><b id=\"1\"/><b id=\"2\"><c>x</c></b></a>"},
        {"<a/>", "/a/@k", {"v"}, "", true, "<a k=\"v\"/>"},
        {"", "/a/@k", {"v"}, "", true, "<a k=\"v\"/>"},
        {"<a k=\"old\" m=\"1\"/>", "/a/@k", {"v"}, "", true, "<a k=\"v\" m=\"1\"/>"},
        {"<a><b>old</b></a>", "/a/b", {"v"}, "", true, "<a><b>v</b></a>"},
        {"<a><b x=\"1\"><c/>t</b></a>", "/a/b", {"v"}, "", true, "<a><b x=\"1\">v</b></a>"},
        {"<a><b/></a>", "/a", {"v"}, "", true, "<a>v</a>"},
        {"<a><b/></a>", "/a/b", {"a&amp;b"}, "", true, "<a><b>a&amp;b</b></a>"},
        {"<a/>", "/a/b", {"a&amp;b"}, "", true, "<a><b>a&amp;amp;b</b></a>"},
        {"<a><b/></a>",
         "/a/b",
         {"Tom & Jerry &x; &#1;"},
         "",
         true,
         "<a><b>Tom &amp; Jerry &amp;x; &amp;#1;</b></a>"},
        {"<a><b>x</b></a>", "/a/b", {nullptr}, "", true, "<a><b/></a>"},
        {"<a/>", "/a/b", {nullptr}, "", true, "<a><b/></a>"},
        {"<a/>", "/a/@k", {nullptr}, "", true, "<a k=\"\"/>"},
        {"", "/a", {nullptr}, "", true, "<a/>"},
        {"<a/>", "/a/b[@id=\"2\"]", {"x"}, "", true, "<a><b id=\"2\">x</b></a>"},
        {"<a><b id=\"2\">o</b></a>",
         "/a/b[@id=\"2\"]",
         {"x"},
         "",
         true,
         "<a><b id=\"2\">x</b></a>"},
        {"<a/>", "/a/b[c=\"2\"]", {"x"}, "", true, "<a><b>x</b></a>"},
        {"<a><b><c>2</c><d/></b></a>", "/a/b[c=\"2\"]", {"x"}, "", true, "<a><b>x</b></a>"},
        {"<a/>", "/a/b[c=\"1\"]/d", {"v"}, "", true, "<a><b><c>1</c><d>v</d></b></a>"},
        {"<a/>", "/a/b[c=1]/d", {"v"}, "", true, "<a><b><c>1</c><d>v</d></b></a>"},
        {"<a/>", "/a/b[@c=\"1\"]/@k", {"v"}, "", true, "<a><b c=\"1\" k=\"v\"/></a>"},
        {"<a/>", "/a/b[c=\"1\"]/@k", {"v"}, "", false, "*"},
        {"<a x=\"1\"/>", "/a[@x=\"1\"]", {"v"}, "", false, "="},
        {"", "/a[@x=\"1\"]", {"v"}, "", false, "="},
        {"<a x=\"1\"/>", "/a[@x=\"1\"]/b", {"v"}, "", true, "<a x=\"1\"><b>v</b></a>"},
        {"", "/a[@x=\"1\"]/b", {"v"}, "", false, "*"},
        {"<a><b/><b/></a>", "/a/b[2]", {"x"}, "", true, "<a><b/><b>x</b></a>"},
        {"<a><b/><b/></a>", "/a/b[2]/c", {"x"}, "", true, "<a><b/><b><c>x</c></b></a>"},
        {"<a><b>t</b></a>", "/a/b/text()", {"v"}, "", true, "<a><b>v</b></a>"},
        {"<a><b/></a>", "//b", {"v"}, "", true, "<a><b>v</b></a>"},
        {"<a/>", "/a/b[", {"v"}, "", false, "="},
        {"<a/>", "/a/b]", {"v"}, "", false, "="},
        {"<a/>", "abc", {"v"}, "", false, "="},
        {"<a/>", "a/b", {"v"}, "", false, "="},
        {"<a/>", "/a/", {"v"}, "", false, "="},
        {"<a/>", "/", {"v"}, "", false, "="},
        {"<a/>", "/a//b", {"v"}, "", false, "="},
    };
    for (const SetCase& c : cases)
        check(c);
}

TEST(Set, ManyValuesAndFlags) {
    const SetCase cases[] = {
        {"<a><b>1</b></a>", "/a/b", {"x", "y", "z"}, "", true, "<a><b>x</b><b>y</b><b>z</b></a>"},
        {"<a><b>1</b><b>2</b><b>3</b></a>", "/a/b", {"x"}, "", true, "<a><b>x</b></a>"},
        {"<a><b>1</b><b>2</b></a>", "/a/b", {}, "", true, "<a/>"},
        {"<a/>", "/a", {}, "", false, "="},
        {"<a><p/><p/></a>", "/a/p/b", {"x", "y"}, "", true, "<a><p><b>x</b><b>y</b></p><p/></a>"},
        {"<a><p/><p><b>1</b></p></a>",
         "/a/p/b",
         {"x", "y"},
         "",
         true,
         "<a><p><b>y</b></p><p><b>x</b></p></a>"},
        {"<a/>", "/a/b", {"x", "y", "z"}, "TFT", true, "<a><b>x</b><b>z</b></a>"},
        {"<a><b>1</b><b>2</b></a>",
         "/a/b",
         {"x", "y", "z"},
         "FTT",
         true,
         "<a><b>y</b><b>z</b></a>"},
        {"<a><b k=\"1\"/><b/></a>",
         "/a/b/@k",
         {"x", "y"},
         "",
         true,
         "<a><b k=\"x\"/><b k=\"y\"/></a>"},
        {"<a><b/></a>", "/a/b/@k", {"x", "y"}, "", true, "<a><b k=\"x\"/><b k=\"y\"/></a>"},
        {"", "/a", {"v", "w"}, "", false, "<a/>"},
        {"<a/>", "/a", {"v", "w"}, "", false, "<a>v</a>"},
        // Overlapping nodes: the inner one goes with the outer, and nothing freed is touched.
        {"<a><b><b/></b></a>", "//b", {"x", "y"}, "", true, "<a><b>x</b></a>"},
        {"<a><b><b/></b><b/></a>", "//b", {"x"}, "", true, "<a><b>x</b></a>"},
        {"<a><b k=\"1\"><b k=\"2\"/></b></a>", "//@k|//b", {"x"}, "", true, "<a><b>x</b></a>"},
        {"<a><b xmlns:q=\"v\"><c/></b></a>",
         "//b|//b/namespace::*",
         {"x"},
         "",
         true,
         "<a><b xmlns:q=\"v\">x</b></a>"},
        {"<a xmlns:p=\"u\"><b xmlns:q=\"v\"/></a>", "//namespace::*|//b", {"x"}, "", false, "*"},
    };
    for (const SetCase& c : cases)
        check(c);
}

// What a path can't build is refused, so that no saved file fails to parse again.
TEST(Set, RefusesWhatCantBeSavedOrFound) {
    std::string deep;
    for (int i = 0; i < 300; ++i)
        deep += "/d";
    const SetCase cases[] = {
        {"<a/>", "/a/b[@id='2']/c", {"x"}, "", false, "*"},
        {"<a/>", "/a/b[c=x]/d", {"x"}, "", false, "*"},
        {"<a/>", "/a/b[c=\" 1 \"]/d", {"x"}, "", false, "*"},
        {"<a><b/></a>", "/a/b[2]", {"x"}, "", false, "="},
        {"<a><b/></a>", "/a/b/text()", {"x"}, "", false, "="},
        {"<a/>", "/a/b[@x=\"1\" and @y=\"2\"]", {"x"}, "", false, "="},
        {"<a/>", "/a/b[a!=\"x\"]", {"x"}, "", false, "="},
        {"<a/>", "/b", {"v"}, "", false, "="},
        {"<project xmlns=\"urn:x\"><version>1</version></project>",
         "/project/version",
         {"2"},
         "",
         false,
         "="},
        {"<a/>", "//b", {"v"}, "", false, "="},
        {"<a><b/></a>", "/a/b", {"\x01"}, "", false, "="},
        {"<a/>", "/a/b", {"\xff"}, "", false, "="},
        {"<a><!--c--></a>", "/a/comment()", {"x--y"}, "", false, "="},
        {"<a><!--c--></a>", "/a/comment()", {"x-y"}, "", true, "<a><!--x-y--></a>"},
        {"<a xmlns:p=\"u\"/>", "/a/namespace::p", {"v"}, "", false, "="},
        {"", deep.c_str(), {"v"}, "", false, "*"},
    };
    for (const SetCase& c : cases)
        check(c);
}

TEST(Create, ConditionalSteps) {
    struct Case {
        const char* xml;
        const char* path;
        bool ok;
        const char* expected;
    } cases[] = {
        {"", "/a", true, "<a/>"},
        {"", "/a/b/c", true, "<a><b><c/></b></a>"},
        {"<a/>", "/a/b[@id=\"2\"]", true, "<a><b id=\"2\"/></a>"},
        {"<a/>", "/a/b[c=\"1\"]", true, "<a><b><c>1</c></b></a>"},
        {"<a><b id=\"2\"/></a>", "/a/b[@id=\"2\"]", true, "<a><b id=\"2\"/><b id=\"2\"/></a>"},
        {"<r><a/><a/></r>", "/r/a/b[@id=\"2\"]", true, "<r><a><b id=\"2\"/></a><a/></r>"},
        {"", "/a/b[@id=\"2\"]", true, "<a><b id=\"2\"/></a>"},
        {"", "/a[@id=\"2\"]", false, ""},
        {"<a/>", "/a[@id=\"2\"]", false, "<a/>"},
        {"<a/>", "/a/b[@id=\"2\"]/c[@k=\"3\"]", true, "<a><b id=\"2\"><c k=\"3\"/></b></a>"},
        {"<a/>", "/a/b[c=\"1\"]/d[e=\"2\"]", false, "*"},
        {"<a><b><c>1</c></b></a>", "/a/b[c=\"1\"]/d[e=\"2\"]", true,
         "<a><b><c>1</c><d><e>2</e></d></b></a>"},
        {"<a><b/></a>", "/a/b[2]", false, "*"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.xml) + "  " + c.path);
        Doc doc(c.xml);
        EXPECT_EQ(doc.impl.createNode(XString(c.path)), c.ok);
        if (std::string(c.expected) != "*") {
            EXPECT_EQ(doc.text(), c.expected);
        }
    }
}

TEST(Set, TypedValuesFromStrings) {
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
