#include <gtest/gtest.h>

#include "store_fixture.h"

namespace {

// "-" stands for a value with no text, "=" for an output left as it was.
std::string shown(const XString& s, const char* before) {
    if (s.blank()) return "-";
    std::string text = s.stringValue("");
    return text == before ? "=" : text;
}

TEST(Split, Path) {
    struct Case {
        const char* path;
        bool ok;
        const char *parent, *node;
    } cases[] = {
        {"/a/b/c", true, "/a/b", "c"}, {"/a", true, "-", "a"},
        {"/", true, "-", "-"},         {"/a/", true, "/a", "-"},
        {"//b", true, "/", "b"},       {"abc", false, "=", "="},
        {"", false, "=", "="},         {"/a/b[@p=\"c/d\"]", true, "/a/b[@p=\"c", "d\"]"},
    };
    for (const Case& c : cases) {
        XString parent("old"), node("old");
        EXPECT_EQ(XMLLoaderImpl::splitPath(XString(c.path), parent, node), c.ok) << c.path;
        EXPECT_EQ(shown(parent, "old"), c.parent) << c.path;
        EXPECT_EQ(shown(node, "old"), c.node) << c.path;
    }
}

TEST(Split, Condition) {
    struct Case {
        const char* path;
        bool ok;
        const char *node, *name, *value;
    } cases[] = {
        {"/a/b/c", false, "=", "=", "="},
        {"/a/b[@id=\"2\"]", true, "/a/b", "@id", "2"},
        {"/a/b[c=2]", true, "/a/b", "c", "2"},
        {"/a/b[ c = \" x y \" ]", true, "/a/b", "c", "x y"},
        {"/a/b[@id='2']", true, "/a/b", "@id", "'2'"},
        {"/a/b[c=\"x]", true, "/a/b", "c", "x"},
        {"/a/b[c=\"\"x\"\"]", true, "/a/b", "c", "\"x\""},
        {"/a/b[@v=\"p=q\"]", true, "/a/b", "@v=\"p", "q"},
        {"/a/b[@p=\"c/d\"]", true, "/a/b", "@p", "c/d"},
        {"/a[x=\"1\"]/b[y=\"2\"]", true, "/a[x=\"1\"]/b", "y", "2"},
        {"/a/b[a!=\"x\"]", true, "/a/b", "a!", "x"},
        {"/a/b[2]", false, "/a/b", "=", "-"},
        {"/a/b[]", false, "/a/b", "=", "-"},
        {"[x=1]", true, "-", "x", "1"},
        {"/a/b]", false, "=", "=", "-"},
        {"/a/b[1]/c", false, "=", "=", "="},
        {"", false, "=", "=", "="},
        // Nothing to name or nothing to hold: refused, and nothing read outside the text.
        {"/a/b[=x]", false, "/a/b", "=", "-"},
        {"/a/b[  =x]", false, "/a/b", "=", "-"},
        {"/a/b[a=]", false, "/a/b", "=", "-"},
        {"/a/b[a= ]", false, "/a/b", "=", "-"},
        {"/a/b[a=\"\"]", false, "/a/b", "=", "-"},
        {"/a/b[a=\"]", false, "/a/b", "=", "-"},
        {"/a/b[a= \" \" ]", false, "/a/b", "=", "-"},
    };
    for (const Case& c : cases) {
        XString node("old"), name("old"), value("old");
        EXPECT_EQ(XMLLoaderImpl::splitCondition(XString(c.path), node, name, value), c.ok)
            << c.path;
        EXPECT_EQ(shown(node, "old"), c.node) << c.path;
        EXPECT_EQ(shown(name, "old"), c.name) << c.path;
        EXPECT_EQ(shown(value, "old"), c.value) << c.path;
    }
}

}  // namespace
