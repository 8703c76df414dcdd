#include <gtest/gtest.h>

#include <sstream>

#include "../common/table.h"
#include "xstring.h"

namespace {

const unsigned long npos = XString::npos;

std::string text(const XString& s) {
    return reinterpret_cast<const char*>(static_cast<const unsigned char*>(s));
}

// The four states, told apart by what blank() says before and after measuring.
TEST(XString, StatesAndTheirWayOut) {
    struct Case {
        const char* name;
        XString value;
        bool blankBefore;
        unsigned long length;
        bool blankAfter;
    } cases[] = {
        {"default", XString(), true, 0, true},
        {"empty std::string", XString(std::string()), true, 0, true},
        {"null char*", XString(static_cast<const char*>(nullptr)), true, 0, true},
        {"empty char*", XString(""), false, 0, true},
        {"adopted empty", XString(xmlStrdup(reinterpret_cast<const xmlChar*>("")), true), false, 0,
         true},
        {"text", XString("abc"), false, 3, false},
        {"std::string", XString(std::string("abcd")), false, 4, false},
        {"accented letter counts bytes", XString("\xc3\xa9"), false, 2, false},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.value.blank(), c.blankBefore);
        EXPECT_NE(static_cast<const unsigned char*>(c.value), nullptr);
        EXPECT_EQ(c.value.length(), c.length);
        EXPECT_EQ(c.value.blank(), c.blankAfter);
        EXPECT_EQ(text(c.value).size(), c.length);
    }
}

TEST(XString, CopyMeasuresTheSourceAssignmentDoesNot) {
    XString source("");
    XString copy(source);
    EXPECT_TRUE(source.blank());  // measured by the copy, its empty buffer released
    EXPECT_FALSE(copy.blank());   // holds a fresh empty buffer of its own

    XString assigned, empty("");
    assigned = empty;
    EXPECT_FALSE(empty.blank());
    EXPECT_FALSE(assigned.blank());
    assigned = assigned;
    EXPECT_FALSE(assigned.blank());
}

TEST(XString, EmptyValuesAreEqualPairwise) {
    XString values[] = {XString(), XString(""), XString(std::string())};
    for (const XString& a : values)
        for (const XString& b : values) {
            EXPECT_TRUE(a == b);
            EXPECT_FALSE(a != b);
        }
    EXPECT_TRUE(XString("ab") == XString(std::string("ab")));
    EXPECT_TRUE(XString("ab") != XString("abc"));
    EXPECT_TRUE(XString("ab") != XString("ac"));
}

TEST(XString, Rfind) {
    for (const Row& row : readTable("xstring.tsv")) {
        auto value = [](const std::string& field) -> const char* {
            return field == "(none)" ? nullptr : field == "''" ? "" : field.c_str();
        };
        unsigned long pos = row[2] == "npos" ? npos : std::stoul(row[2]);
        unsigned long expected = row[3] == "not found" ? npos : std::stoul(row[3]);
        EXPECT_EQ(XString(value(row[0])).rfind(value(row[1]), pos), expected)
            << row[0] << " " << row[1] << " " << row[2];
    }
}

TEST(XString, Substr) {
    XString abc("abc");
    EXPECT_EQ(text(abc.substr(1)), "bc");
    EXPECT_EQ(text(abc.substr(0, 2)), "ab");
    EXPECT_TRUE(abc.substr(3).blank());
    EXPECT_TRUE(abc.substr(4).blank());
    EXPECT_TRUE(abc.substr(0, 0).blank());
    XString empty("");
    EXPECT_TRUE(empty.substr(0, 0).blank());
    EXPECT_FALSE(empty.blank());  // an explicit count doesn't measure
    EXPECT_TRUE(XString().substr(0).blank());
    XString cut = XString("\xc3\xa9").substr(0, 1);
    EXPECT_EQ(cut.length(), 1u);
    EXPECT_EQ(cut[0], 0xc3);
    EXPECT_EQ(cut[1], 0);
    EXPECT_EQ(XString()[0], 0);
}

TEST(XString, Concatenation) {
    XString target;
    XString result = (target += XString(""));
    EXPECT_TRUE(target.blank());   // the returned copy measured it...
    EXPECT_FALSE(result.blank());  // ...and holds an empty buffer of its own
    target += XString("ab");
    target += XString();
    target += XString("cd");
    EXPECT_EQ(text(target), "abcd");
    EXPECT_EQ(target.length(), 4u);
    target += target;
    EXPECT_EQ(text(target), "abcdabcd");

    EXPECT_EQ(text(XString("a") + "b"), "ab");
    EXPECT_EQ(text(XString() + "b"), "b");
    EXPECT_TRUE((XString() + static_cast<const char*>(nullptr)).blank());
    EXPECT_EQ(text(XString("a") + XString("b")), "ab");
    EXPECT_EQ(text(XString() + XString("b")), "b");
    EXPECT_EQ(text("a" + XString("b")), "ab");
    EXPECT_EQ(text(static_cast<const char*>(nullptr) + XString("b")), "b");
    XString left("x"), right("");
    EXPECT_EQ(text(left + right), "x");
    EXPECT_TRUE(right.blank());  // operands are measured, not changed in text
}

TEST(XString, StreamAndStringValue) {
    std::ostringstream out;
    out.width(10);
    out << XString() << XString("") << XString("a\nb");
    EXPECT_EQ(out.str(), "a\nb");
    EXPECT_EQ(XString().stringValue("ignored"), "");
    EXPECT_EQ(XString("x y").stringValue(""), "x y");
    std::string withNul("a\0b", 3);
    EXPECT_EQ(XString(withNul).length(), 3u);  // outside the type's domain, but never a crash
}

}  // namespace
