#include <gtest/gtest.h>

#include <sstream>

#include "xstring.h"

namespace {

const unsigned long npos = XString::npos;

std::string text(const XString& s) {
    return reinterpret_cast<const char*>(static_cast<const unsigned char*>(s));  // never null
}

// blank() before and after length(): an empty buffer holds no text once measured.
TEST(XString, StatesAndLengths) {
    const struct {
        XString value;
        bool blankBefore;
        unsigned long length;
        bool blankAfter;
    } cases[] = {{XString(), true, 0, true},
                 {XString(std::string()), true, 0, true},
                 {XString(static_cast<const char*>(nullptr)), true, 0, true},
                 {XString(""), false, 0, true},
                 {XString(std::string("abcd")), false, 4, false},
                 {XString("\xc3\xa9"), false, 2, false}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.value.blank(), c.blankBefore);
        EXPECT_EQ(text(c.value).size(), c.length);
        EXPECT_EQ(c.value.length(), c.length);
        EXPECT_EQ(c.value.blank(), c.blankAfter);
    }
    XString source(""), copy(source), assigned, empty("");
    EXPECT_TRUE(source.blank() && !copy.blank());  // the copy measured its source
    assigned = empty;
    EXPECT_FALSE(empty.blank() || assigned.blank());          // assignment measures nothing
    EXPECT_EQ(XString(std::string("a\0b", 3)).length(), 3u);  // outside the domain, no crash
}

TEST(XString, Comparison) {
    XString empties[] = {XString(), XString(""), XString(std::string())};
    for (const XString& a : empties)
        for (const XString& b : empties)
            EXPECT_TRUE(a == b && !(a != b));
    EXPECT_TRUE(XString("ab") == XString(std::string("ab")));
    EXPECT_TRUE(XString("ab") != XString("abc") && XString("ab") != XString("ac"));
}

TEST(XString, RfindAndSubstr) {
    const struct {
        const char *text, *needle;
        unsigned long pos, found;
    } cases[] = {{"abc", "b", npos, 1}, {"abc", "b", 1, 1},      {"abc", "b", 100, 1},
                 {"abc", "b", 0, npos}, {"abc", "", npos, 3},    {"abc", "", 1, 1},
                 {"abc", "", 100, 3},   {nullptr, "", npos, 0},  {nullptr, "a", npos, npos},
                 {"abcb", "bc", 1, 1},  {"a/b/c", "/", npos, 3}, {"abc", "abcd", npos, npos},
                 {"abc", nullptr, 2, 2}};
    for (const auto& c : cases)
        EXPECT_EQ(XString(c.text).rfind(c.needle, c.pos), c.found) << c.text << " " << c.needle;
    XString abc("abc"), cut = XString("\xc3\xa9").substr(0, 1);
    EXPECT_EQ(text(abc.substr(1)) + text(abc.substr(0, 2)), "bcab");
    EXPECT_TRUE(abc.substr(3).blank() && abc.substr(4).blank() && abc.substr(0, 0).blank());
    EXPECT_TRUE(XString().substr(0).blank());
    EXPECT_EQ(cut.length(), 1u);
    EXPECT_EQ(cut[0], 0xc3);
    EXPECT_EQ(cut[1], 0);
    EXPECT_EQ(XString()[0], 0);
}

TEST(XString, ConcatenationAndOutput) {
    XString target;
    XString result = (target += XString(""));
    EXPECT_TRUE(target.blank() && !result.blank());  // the returned copy measured the target
    target += XString("ab");
    target += XString();
    target += XString("cd");
    EXPECT_EQ(target.length(), 4u);
    target += target;
    EXPECT_EQ(text(target), "abcdabcd");
    XString none, right("");
    EXPECT_EQ(text(XString("a") + "b") + text(none + "b") + text(XString("a") + XString("b")) +
                  text(none + XString("b")) + text("a" + XString("b")) +
                  text(static_cast<const char*>(nullptr) + XString("b")) +
                  text(XString("x") + right),
              "abbabbabbx");
    EXPECT_TRUE((none + static_cast<const char*>(nullptr)).blank() && right.blank());
    std::ostringstream out;
    out.width(10);
    out << XString() << XString("") << XString("a\nb");
    EXPECT_EQ(out.str(), "a\nb");
    EXPECT_EQ(XString().stringValue("ignored") + XString("x y").stringValue(""), "x y");
}

}  // namespace
