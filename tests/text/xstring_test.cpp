#include <gtest/gtest.h>

#include <sstream>

#include "xstring.h"

namespace {

const unsigned long npos = XString::npos;

std::string text(const XString& s) {
    return reinterpret_cast<const char*>(static_cast<const unsigned char*>(s));  // never null
}

TEST(XString, StatesLengthsAndComparison) {
    // No text, an empty buffer (blank only once measured), text; copies measure their source.
    XString none, fromEmpty{std::string()}, null(static_cast<const char*>(nullptr)), empty("");
    XString copied(""), copy(copied), assigned, accented("\xc3\xa9");
    assigned = empty;
    EXPECT_TRUE(none.blank() && fromEmpty.blank() && null.blank() && !empty.blank());
    EXPECT_TRUE(copied.blank() && !copy.blank() && !assigned.blank());
    EXPECT_EQ(text(none) + text(empty), "");
    EXPECT_EQ(empty.length() + none.length() + accented.length(), 2u);
    EXPECT_TRUE(empty.blank() && XString("") == none && none == fromEmpty && !(none != empty));
    EXPECT_TRUE(XString("ab") == XString(std::string("ab")) && XString("ab") != XString("ac") &&
                XString("ab") != XString("abc"));
    EXPECT_EQ(XString(std::string("a\0b", 3)).length(), 3u);  // outside the domain, no crash
    XString self("ab");
    self += self;
    self = self;
    EXPECT_EQ(text(self), "abab");
}

TEST(XString, RfindAndSubstr) {
    const struct {
        const char *text, *needle;
        unsigned long pos, found;
    } cases[] = {{"abc", "b", npos, 1}, {"abc", "b", 1, 1},          {"abc", "b", 100, 1},
                 {"abc", "b", 0, npos}, {"abc", "", npos, 3},        {"abc", "", 1, 1},
                 {"abc", "", 100, 3},   {nullptr, "", npos, 0},      {nullptr, "a", npos, npos},
                 {"abcb", "bc", 1, 1},  {"abc", "abcd", npos, npos}, {"abc", nullptr, 2, 2}};
    for (const auto& c : cases)
        EXPECT_EQ(XString(c.text).rfind(c.needle, c.pos), c.found) << c.text << " " << c.needle;
    XString abc("abc"), cut = XString("\xc3\xa9").substr(0, 1);
    EXPECT_EQ(text(abc.substr(1)) + text(abc.substr(0, 2)), "bcab");
    EXPECT_TRUE(abc.substr(3).blank() && abc.substr(4).blank() && abc.substr(0, 0).blank());
    EXPECT_TRUE(cut.length() == 1 && cut[0] == 0xc3 && cut[1] == 0 && XString()[0] == 0);
}

}  // namespace
