#include "src/platform/textformat.h"

#include <climits>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "src/platform/bounded.h"

namespace NS_BUNDLEMGR1 {
namespace {

#pragma GCC diagnostic ignored "-Wformat"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

/// What one of the two functions makes of a format, and its result.
struct Formatted {
    std::string text;
    int result;

    bool operator==(const Formatted& other) const { return text == other.text && result == other.result; }
};

std::ostream& operator<<(std::ostream& out, const Formatted& formatted) {
    return out << '"' << formatted.text << "\" " << formatted.result;
}

constexpr std::size_t kSize = 40;  // of the buffers

Formatted Quickly(const char* format, ...) {
    char buffer[kSize + 1];
    buffer[kSize] = '#';
    va_list args;
    va_start(args, format);
    const int result = FormatText(buffer, kSize, format, args);
    va_end(args);
    EXPECT_EQ('#', buffer[kSize]);
    return {buffer, result};
}

Formatted AsTheLibrary(const char* format, ...) {
    char buffer[kSize];
    va_list args;
    va_start(args, format);
    const int result = vsnprintf_s(buffer, kSize, kSize - 1, format, args);
    va_end(args);
    return {buffer, result};
}

template <class... Args>
void ExpectSame(const char* format, Args... args) {
    EXPECT_EQ(AsTheLibrary(format, args...), Quickly(format, args...)) << format;
}

TEST(TextFormatTest, TextsAreTakenAsTheyStand) {
    for (const char* const format : {"", "a", "a b\nc\xD6\xD0", "%%", "100%% %%%%"}) ExpectSame(format);
}

TEST(TextFormatTest, SimpleConversionsAreTheLibrarys) {
    for (const int number : {0, 1, -1, 42, INT_MAX, INT_MIN}) ExpectSame("a %d b %i c %u", number, number, number);
    for (const long number : {0L, LONG_MAX, LONG_MIN}) {
        ExpectSame("%ld", number);
        ExpectSame("%li|%lu", number, number);
        ExpectSame("%lld", number);
        ExpectSame("%lli", number);
        ExpectSame("%llu", number);
        ExpectSame("%zu", number);
        ExpectSame("%zd", number);
        ExpectSame("%zi", number);
    }
    ExpectSame("%s and %s", "one", "");
    ExpectSame("[%c%c]", 'x', 0xD6);
    ExpectSame("%s=%d%%", "load", 99);
}

TEST(TextFormatTest, ANullTextIsNamed) {
    ExpectSame("a %s b", static_cast<const char*>(nullptr));
}

TEST(TextFormatTest, ANulEndsTheText) {
    ExpectSame("ab%ccd", 0);
}

TEST(TextFormatTest, LongTextsAreCut) {
    const std::string text(100, 'x');
    for (std::size_t size = kSize - 3; size <= kSize + 3; ++size) {
        const std::string piece = text.substr(0, size);
        EXPECT_EQ(piece.substr(0, kSize - 1), Quickly(piece.c_str()).text);
        EXPECT_EQ(AsTheLibrary("%s%d", piece.c_str(), 12345).text, Quickly("%s%d", piece.c_str(), 12345).text);
        ExpectSame("%s%s", piece.c_str(), "tail");
        ExpectSame("%d%s", 1, piece.c_str());
    }
}

TEST(TextFormatTest, OtherConversionsAreLeftToTheLibrary) {
    ExpectSame("%d %5d|%-5d|%05d|%+d", 1, 2, 3, 4, 5);
    ExpectSame("%s %.2s|%5s|%*d", "abc", "abc", "abc", 4, 7);
    ExpectSame("%x %X %o %#x", 255, 255, 8, 16);
    ExpectSame("%f %g %e", 1.5, 2.5, 3.5);
    ExpectSame("%p", reinterpret_cast<void*>(0x1234));
    ExpectSame("%hd %hhd", 70000, 300);
    ExpectSame("%jd", static_cast<std::intmax_t>(-1));
    ExpectSame("%2$s %1$d", 5, "five");
    ExpectSame("%m");
    ExpectSame("%ls", L"wide");
    ExpectSame("%zs %lc", "a", L'b');
}

TEST(TextFormatTest, WhatTheLibraryRefusesIsRefused) {
    ExpectSame("a %s %ls", "b", L"\x4E2D");  // in the C locale
// A sanitizer's own vsnprintf gives up on these.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    ExpectSame("100%");
    ExpectSame("%l");
    ExpectSame("%5");
    ExpectSame("%y %d", 1);
#endif
    EXPECT_EQ(-1, Quickly(nullptr).result);
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
