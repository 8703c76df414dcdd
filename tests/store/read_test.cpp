#include <gtest/gtest.h>

#include "../common/files.h"
#include "store_fixture.h"

namespace {

// What writeValues puts out for path, and the lines that values make.
std::string written(const Doc& doc, const char* path, bool& ok) {
    return captured([&](std::FILE* out) { return doc.impl.writeValues(XString(path), out); }, ok);
}
std::string lines(const std::vector<std::string>& values) {
    std::string text;
    for (const std::string& v : values)
        text += v + "\n";
    return text;
}

TEST(Read, ValueOfEachSelectedNode) {
    for (const Row& row : readTable("read.tsv")) {
        SCOPED_TRACE(row[0] + "  " + row[1]);
        Doc doc(row[0].c_str());
        std::vector<XString> values;
        EXPECT_EQ(doc.impl.getVector(XString(row[1]), values, 0), row[2] == "true");
        std::vector<std::string> expected;
        for (const std::string& v : parts(row[3]))
            expected.push_back(v == "\"\"" ? "" : v);
        EXPECT_EQ(strings(values), expected);
        EXPECT_EQ(doc.impl.countNodes(XString(row[1])), expected.size());
        bool ok;
        EXPECT_EQ(written(doc, row[1].c_str(), ok), lines(expected));
        EXPECT_EQ(ok, row[2] == "true");
    }
}

TEST(Read, WrittenValuesMatchReadOnesBeyondOneBlock) {
    // Many small pieces and a piece larger than the writer's block, in one value and apart.
    std::string xml = "<a><b>" + std::string(70000, 'x') + "</b>";
    for (int i = 0; i < 9000; ++i)
        xml += "<c>" + std::to_string(i) + "</c><![CDATA[&]]>";
    Doc doc((xml + "</a>").c_str());
    for (const char* path : {"/a", "/a/node()", "/a/b | /a/c[last()]"}) {
        std::vector<XString> values;
        ASSERT_TRUE(doc.impl.getVector(XString(path), values, 0));
        bool ok;
        EXPECT_EQ(written(doc, path, ok), lines(strings(values))) << path;
        EXPECT_TRUE(ok);
    }
}

TEST(Read, MaxBoundsTheNodesReadAndValuesAreAppended) {
    Doc doc("<a><b>1</b><b>2</b><b>3</b></a>");
    for (unsigned int max : {0u, 2u, 5u}) {
        std::vector<XString> values(1, XString("kept"));
        EXPECT_TRUE(doc.impl.getVector(XString("/a/b"), values, max));
        EXPECT_EQ(strings(values).size(), max == 2 ? 3u : 4u);
        EXPECT_EQ(strings(values)[0], "kept");
    }
}

TEST(Read, TypedReadReplacesStaleValues) {
    XMLLoader loader;
    const char xml[] = "<a><b>1</b><c/></a>";
    ASSERT_TRUE(loader.loadArray(xml, sizeof xml - 1));
    const struct {
        const char* path;
        bool ok;
        std::vector<std::string> values;
    } cases[] = {{"/a/b", true, {"1"}},   {"/a/c", true, {""}}, {"/a/x", true, {}},
                 {"count(/a)", true, {}}, {"/a[", false, {}},   {"", false, {}}};
    for (const auto& c : cases) {
        std::vector<std::string> values = {"stale", "stale", "stale"};
        EXPECT_EQ(loader.getVector(c.path, values), c.ok) << c.path;
        EXPECT_EQ(values, c.values) << c.path;
    }
}

}  // namespace
