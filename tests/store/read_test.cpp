#include <gtest/gtest.h>

#include "store_fixture.h"

namespace {

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
