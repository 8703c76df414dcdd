#include <gtest/gtest.h>

#include "store_fixture.h"

namespace {

// "(none)" for a value with no text, "=" for an output left as it was.
std::string shown(const XString& s) {
    std::string text = s.stringValue("");
    return s.blank() ? "(none)" : text == "old" ? "=" : text;
}

TEST(Split, Path) {
    for (const Row& row : readTable("split_path.tsv")) {
        XString parent("old"), node("old");
        EXPECT_EQ(XMLLoaderImpl::splitPath(XString(row[0]), parent, node), row[1] == "true")
            << row[0];
        EXPECT_EQ(shown(parent) + " " + shown(node), row[2] + " " + row[3]) << row[0];
    }
}

TEST(Split, Condition) {
    for (const Row& row : readTable("split_condition.tsv")) {
        XString node("old"), name("old"), value("old");
        EXPECT_EQ(XMLLoaderImpl::splitCondition(XString(row[0]), node, name, value),
                  row[1] == "true")
            << row[0];
        EXPECT_EQ(shown(node) + " " + shown(name) + " " + shown(value),
                  row[2] + " " + row[3] + " " + row[4])
            << row[0];
    }
}

}  // namespace
