#include "src/platform/bounded.h"

#include <climits>
#include <clocale>
#include <cwchar>
#include <string>

#include <gtest/gtest.h>

namespace {

using NS_BUNDLEMGR1::memset_s;
using NS_BUNDLEMGR1::snprintf_s;
using NS_BUNDLEMGR1::strncpy_s;
using NS_BUNDLEMGR1::vsnprintf_s;

// A destination of eight bytes with four more behind it that nobody may touch.
struct Destination {
    char text[8] = {'~', '~', '~', '~', '~', '~', '~', '~'};
    char behind[4] = {'!', '!', '!', '!'};

    bool IsIntactBehind() const { return std::string(behind, sizeof behind) == "!!!!"; }
    std::string Bytes() const { return std::string(text, sizeof text); }
};

int CallVsnprintf(char* dest, std::size_t destMax, std::size_t count, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int result = vsnprintf_s(dest, destMax, count, format, args);
    va_end(args);
    return result;
}

TEST(Memset, FillsTheCountAndNoMore) {
    Destination d;
    EXPECT_EQ(0, memset_s(d.text, sizeof d.text, 'x', 3));
    EXPECT_EQ("xxx~~~~~", d.Bytes());
}

TEST(Memset, FillsTheWholeDestination) {
    Destination d;
    EXPECT_EQ(0, memset_s(d.text, sizeof d.text, 0, sizeof d.text));
    EXPECT_EQ(std::string(8, '\0'), d.Bytes());
    EXPECT_TRUE(d.IsIntactBehind());
}

TEST(Memset, CountOfZeroChangesNothing) {
    Destination d;
    EXPECT_EQ(0, memset_s(d.text, sizeof d.text, 'x', 0));
    EXPECT_EQ("~~~~~~~~", d.Bytes());
}

TEST(Memset, TooLargeACountFillsTheDestinationAndFails) {
    Destination d;
    EXPECT_EQ(ERANGE, memset_s(d.text, sizeof d.text, 'x', sizeof d.text + 1));
    EXPECT_EQ("xxxxxxxx", d.Bytes());
    EXPECT_TRUE(d.IsIntactBehind());
}

TEST(Memset, NoDestinationFails) {
    Destination d;
    EXPECT_EQ(EINVAL, memset_s(nullptr, 8, 'x', 1));
    EXPECT_EQ(EINVAL, memset_s(d.text, 0, 'x', 1));
    EXPECT_EQ("~~~~~~~~", d.Bytes());
}

TEST(Strncpy, CopiesTextAndNul) {
    Destination d;
    EXPECT_EQ(0, strncpy_s(d.text, sizeof d.text, "abc", 7));
    EXPECT_EQ(std::string("abc\0~~~~", 8), d.Bytes());
}

TEST(Strncpy, StopsAtTheCount) {
    Destination d;
    EXPECT_EQ(0, strncpy_s(d.text, sizeof d.text, "abcdefghijkl", 2));
    EXPECT_EQ(std::string("ab\0~~~~~", 8), d.Bytes());
}

TEST(Strncpy, ReadsNoFurtherThanTheCount) {
    const char unterminated[] = {'a', 'b', 'c'};
    Destination d;
    EXPECT_EQ(0, strncpy_s(d.text, sizeof d.text, unterminated, sizeof unterminated));
    EXPECT_STREQ("abc", d.text);
}

TEST(Strncpy, FillsTheDestinationToItsLastByte) {
    Destination d;
    EXPECT_EQ(0, strncpy_s(d.text, sizeof d.text, "1234567", 100));
    EXPECT_EQ(std::string("1234567\0", 8), d.Bytes());
    EXPECT_TRUE(d.IsIntactBehind());
}

TEST(Strncpy, TooLongATextFailsAndEmptiesTheDestination) {
    Destination d;
    EXPECT_EQ(ERANGE, strncpy_s(d.text, sizeof d.text, "12345678", 8));
    EXPECT_STREQ("", d.text);
    EXPECT_TRUE(d.IsIntactBehind());
}

TEST(Strncpy, NullSourceFailsAndEmptiesTheDestination) {
    Destination d;
    EXPECT_EQ(EINVAL, strncpy_s(d.text, sizeof d.text, nullptr, 3));
    EXPECT_STREQ("", d.text);
}

TEST(Strncpy, NoDestinationFails) {
    Destination d;
    EXPECT_EQ(EINVAL, strncpy_s(nullptr, 8, "a", 1));
    EXPECT_EQ(EINVAL, strncpy_s(d.text, 0, "a", 1));
    EXPECT_EQ("~~~~~~~~", d.Bytes());
}

TEST(Strncpy, TakesOverlappingArguments) {
    char text[8] = "abcdef";
    EXPECT_EQ(0, strncpy_s(text, sizeof text, text + 2, 7));
    EXPECT_STREQ("cdef", text);
}

TEST(Snprintf, ReturnsTheNumberOfCharactersStored) {
    Destination d;
    EXPECT_EQ(5, snprintf_s(d.text, sizeof d.text, 7, "%d-%s", 42, "ab"));
    EXPECT_STREQ("42-ab", d.text);
}

TEST(Snprintf, CutsTheTextToTheCountAndSucceeds) {
    Destination d;
    EXPECT_EQ(3, snprintf_s(d.text, sizeof d.text, 3, "%s", "abcdefghijkl"));
    EXPECT_EQ(std::string("abc\0", 4), d.Bytes().substr(0, 4));
}

TEST(Snprintf, CutsTheTextToAllButTheLastByte) {
    Destination d;
    EXPECT_EQ(7, snprintf_s(d.text, sizeof d.text, 7, "%s", "abcdefghijkl"));
    EXPECT_EQ(std::string("abcdefg\0", 8), d.Bytes());
    EXPECT_TRUE(d.IsIntactBehind());
}

TEST(Snprintf, CountOfZeroGivesTheEmptyText) {
    Destination d;
    EXPECT_EQ(0, snprintf_s(d.text, sizeof d.text, 0, "%s", "abc"));
    EXPECT_STREQ("", d.text);
}

TEST(Snprintf, LargerCountIsNoFailureWhereTheTextFits) {
    Destination d;
    EXPECT_EQ(7, snprintf_s(d.text, sizeof d.text, 8, "%s", "1234567"));
    EXPECT_STREQ("1234567", d.text);
    EXPECT_EQ(3, snprintf_s(d.text, sizeof d.text, SIZE_MAX, "%s", "abc"));
    EXPECT_STREQ("abc", d.text);
}

TEST(Snprintf, TextThatOutgrowsTheDestinationFails) {
    Destination d;
    EXPECT_EQ(-1, snprintf_s(d.text, sizeof d.text, 8, "%s", "12345678"));
    EXPECT_EQ(std::string("1234567\0", 8), d.Bytes());
    EXPECT_TRUE(d.IsIntactBehind());
}

TEST(Snprintf, NullFormatFailsAndEmptiesTheDestination) {
    Destination d;
    const char* const format = nullptr;
    EXPECT_EQ(-1, CallVsnprintf(d.text, sizeof d.text, 7, format));
    EXPECT_EQ(std::string("\0~~~~~~~", 8), d.Bytes());
}

TEST(Snprintf, NoDestinationFails) {
    Destination d;
    EXPECT_EQ(-1, snprintf_s(nullptr, 8, 7, "a"));
    EXPECT_EQ(-1, snprintf_s(d.text, 0, 7, "a"));
    EXPECT_EQ("~~~~~~~~", d.Bytes());
}

TEST(Snprintf, FailingConversionFailsAndLeavesATerminatedText) {
    ASSERT_STREQ("C", std::setlocale(LC_ALL, nullptr));
    Destination d;
    // No such character in the "C" locale.
    EXPECT_EQ(-1, snprintf_s(d.text, sizeof d.text, 7, "ab%lc", static_cast<std::wint_t>(0x20AC)));
    EXPECT_LT(strnlen(d.text, sizeof d.text), sizeof d.text);
    EXPECT_TRUE(d.IsIntactBehind());
}

TEST(Snprintf, TextLongerThanAnIntFails) {
    Destination d;
    volatile int width = INT_MAX;  // The compiler would see it coming.
    EXPECT_EQ(-1, snprintf_s(d.text, sizeof d.text, 7, "%*s%*s", width, "", width, ""));
    EXPECT_LT(strnlen(d.text, sizeof d.text), sizeof d.text);
    EXPECT_TRUE(d.IsIntactBehind());
}

TEST(Vsnprintf, FormatsAsSnprintfDoes) {
    Destination d;
    EXPECT_EQ(4, CallVsnprintf(d.text, sizeof d.text, 4, "%s%d", "abc", 123));
    EXPECT_STREQ("abc1", d.text);
}

// Every small combination of text length, destination size and count.
TEST(Snprintf, HoldsItsContractForAllSmallSizes) {
    const std::string digits = "0123456789";
    for (std::size_t length = 0; length <= 10; ++length) {
        for (std::size_t destMax = 1; destMax <= 8; ++destMax) {
            for (std::size_t count = 0; count <= 12; ++count) {
                const std::string text = digits.substr(0, length);
                const std::string wanted = text.substr(0, count);
                const bool fits = wanted.size() < destMax;
                Destination d;
                const int result = snprintf_s(d.text, destMax, count, "%s", text.c_str());
                EXPECT_EQ(fits ? static_cast<int>(wanted.size()) : -1, result);
                EXPECT_EQ(wanted.substr(0, destMax - 1), d.text);
                EXPECT_EQ(std::string(8 - destMax, '~'), d.Bytes().substr(destMax));
                EXPECT_TRUE(d.IsIntactBehind());
            }
        }
    }
}

}  // namespace
