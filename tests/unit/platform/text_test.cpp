#include "src/platform/text.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using NS_BUNDLEMGR1::CopyText;
using NS_BUNDLEMGR1::EndsWith;
using NS_BUNDLEMGR1::EndsWithSeparator;
using NS_BUNDLEMGR1::IsPlainAscii;
using NS_BUNDLEMGR1::WithoutTrailingSeparator;

TEST(EndsWithTest, LooksAtTheEndOnly) {
    EXPECT_TRUE(EndsWith("a/..", "/.."));
    EXPECT_TRUE(EndsWith("/..", "/.."));
    EXPECT_TRUE(EndsWith("a", ""));
    EXPECT_FALSE(EndsWith("/..a", "/.."));
    EXPECT_FALSE(EndsWith("..", "/.."));
}

// It is copied in pieces of several sizes.
TEST(CopyTextTest, CopiesTextsOfAnyLengthAndNothingElse) {
    for (std::size_t length = 0; length < 200; ++length) {
        std::string text;
        for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('0' + i % 77);
        std::string out(length + 2, '#');
        EXPECT_EQ(&out[length + 1], CopyText(text, &out[1]));
        EXPECT_EQ("#" + text + "#", out);
    }
}

// The bytes are looked at in groups of eight, and then one by one.
TEST(IsPlainAsciiTest, FindsAnotherByteWhereverItIs) {
    for (std::size_t length = 1; length < 20; ++length) {
        EXPECT_TRUE(IsPlainAscii(std::string(length, '\x7f'))) << length;
        for (std::size_t i = 0; i < length; ++i) {
            for (const char other : {'\x80', '\xff', '\0'}) {
                std::string text(length, '\x01');
                text[i] = other;
                EXPECT_FALSE(IsPlainAscii(text)) << "byte " << i << " of " << length;
            }
        }
    }
}

TEST(IsPlainAsciiTest, TakesTheEmptyTextForAscii) {
    EXPECT_TRUE(IsPlainAscii(""));
}

TEST(PathTextTest, TakesBothKindsOfSeparatorOffTheEndButOnlyOne) {
    EXPECT_EQ("/a", WithoutTrailingSeparator("/a/"));
    EXPECT_EQ("/a", WithoutTrailingSeparator("/a\\"));
    EXPECT_EQ("/a/", WithoutTrailingSeparator("/a//"));
    EXPECT_EQ("/a", WithoutTrailingSeparator("/a"));
    EXPECT_EQ("", WithoutTrailingSeparator("/"));
    EXPECT_EQ("", WithoutTrailingSeparator(""));
}

TEST(PathTextTest, TellsWhetherASeparatorIsAtTheEnd) {
    EXPECT_TRUE(EndsWithSeparator("/"));
    EXPECT_TRUE(EndsWithSeparator("a\\"));
    EXPECT_FALSE(EndsWithSeparator("/a"));
    EXPECT_FALSE(EndsWithSeparator(""));
}

}  // namespace
