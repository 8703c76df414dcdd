#include <gtest/gtest.h>

#include "store_fixture.h"

namespace {

using Values = std::vector<std::string>;

TEST(Read, ValueOfEachSelectedNode) {
    struct Case {
        const char* xml;
        const char* path;
        bool ok;
        Values values;
    } cases[] = {
        {"<a><b>1</b><c>2</c></a>", "/a/b/text()", true, {"1"}},
        {"<a><b>1</b><c>2</c></a>", "/a/b", true, {"1"}},
        {"<a><b>1</b><c>2</c></a>", "/a", true, {"1 2"}},
        {"<a><b><x>1</x><y>2</y></b></a>", "/a", true, {"12"}},
        {"<a><b/><c>x</c></a>", "/a", true, {" x"}},
        {"<a><c>x</c><b/></a>", "/a", true, {"x "}},
        {"<a><b/></a>", "/a/b", true, {""}},
        {"<a k='v'/>", "/a/@k", true, {"v"}},
        {"<a k='v'/>", "/a/@*|/a", true, {"", "v"}},
        {"<!--c--><a>t</a>", "/", true, {"c t"}},
        {"<a><!--c--><?p d?><![CDATA[x]]></a>", "/a/node()", true, {"", "", ""}},
        {"<a xmlns:p='urn:p'/>", "/a/namespace::p", true, {"urn:p"}},
        {"<a>l1\nl2</a>", "/a", true, {"l1\nl2"}},
        {"<a>\xc3\xa9</a>", "/a", true, {"\xc3\xa9"}},
        {"<a><b>1</b><b>2</b></a>", "/a/b", true, {"1", "2"}},
        {"<a/>", "/a/b", true, {}},
        {"<a/>", "count(/a)", true, {}},
        {"<a/>", "1+1", true, {}},
        {"<a/>", "string(/a)", true, {}},
        {"<a/>", "a", true, {}},
        {"<a/>", "/a[", false, {}},
        {"<a/>", "", false, {}},
        {"<a/>", "nosuch(/a)", false, {}},
        {"<a/>", "/p:a", false, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.xml) + " " + c.path);
        Doc doc(c.xml);
        std::vector<XString> values;
        EXPECT_EQ(doc.impl.getVector(XString(c.path), values, 0), c.ok);
        EXPECT_EQ(strings(values), c.values);
        EXPECT_EQ(doc.impl.countNodes(XString(c.path)), c.values.size());
    }
}

TEST(Read, MaxBoundsTheNodesRead) {
    Doc doc("<a><b>1</b><b>2</b><b>3</b></a>");
    for (unsigned int max : {0u, 2u, 5u}) {
        std::vector<XString> values(1, XString("kept"));
        EXPECT_TRUE(doc.impl.getVector(XString("/a/b"), values, max));
        Values expected = max == 2 ? Values{"kept", "1", "2"} : Values{"kept", "1", "2", "3"};
        EXPECT_EQ(strings(values), expected);
    }
}

TEST(Read, TypedReadReplacesStaleValues) {
    XMLLoader loader;
    const char xml[] = "<a><b>1</b><c/></a>";
    ASSERT_TRUE(loader.loadArray(xml, sizeof xml - 1));
    struct Case {
        const char* path;
        bool ok;
        Values values;
    } cases[] = {{"/a/b", true, {"1"}},   {"/a/c", true, {""}}, {"/a/x", true, {}},
                 {"count(/a)", true, {}}, {"/a[", false, {}},   {"", false, {}}};
    for (const Case& c : cases) {
        Values values = {"stale", "stale", "stale"};
        EXPECT_EQ(loader.getVector(c.path, values), c.ok) << c.path;
        EXPECT_EQ(values, c.values) << c.path;
    }
}

TEST(Read, NoDocumentSelectsNothing) {
    XMLLoaderImpl impl;
    std::vector<XString> values;
    EXPECT_TRUE(impl.getVector(XString("/a"), values, 0));
    EXPECT_TRUE(values.empty());
    EXPECT_EQ(impl.countNodes(XString("/")), 0u);
}

}  // namespace
