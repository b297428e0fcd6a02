// What the tests of iconv's calls have in common. They run on GNU libiconv as well as on the
// stand-in: the library asks no more of either.
#pragma once

#include <cerrno>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "src/platform/iconv/iconv.h"

// The C library's own iconv, by its binary interface: its header may be GNU libiconv's,
// which gives these names another meaning.
extern "C" {
void* iconv_open(const char*, const char*);
std::size_t iconv(void*, char**, std::size_t*, char**, std::size_t*);
int iconv_close(void*);
}

namespace test {

using NS_BUNDLEMGR1::NoIconv;

constexpr std::size_t kFailed = static_cast<std::size_t>(-1);
constexpr std::size_t kPlentyOfRoom = 4096;
constexpr char kGuard = '\x5A';

/// The bytes of a literal, NUL bytes included.
template <std::size_t kSize>
std::string Bytes(const char (&literal)[kSize]) {
    return std::string(literal, kSize - 1);
}

struct Result {
    std::size_t replaced;
    int error;
    std::string out;
    std::size_t read;
};

inline void MarkEachByte(const char*, std::size_t count, void (*write)(const unsigned int*, std::size_t, void*),
                         void* arg, void*) {
    const unsigned int mark = '?';
    for (std::size_t i = 0; i < count; ++i) write(&mark, 1, arg);
}

inline void MarkCharacter(unsigned int, void (*write)(const char*, std::size_t, void*), void* arg, void*) {
    write("?", 1, arg);
}

/// An open conversion, which puts a mark for each byte and for each character that is bad.
class Handle {
public:
    Handle(const char* to, const char* from) : m_handle(libiconv_open(to, from)) {
        if (IsOpen()) Install({MarkEachByte, MarkCharacter, nullptr, nullptr, nullptr});
    }
    ~Handle() {
        if (IsOpen()) libiconv_close(m_handle);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    bool IsOpen() const { return m_handle != NoIconv(); }

    /// Instead of the marks.
    void Install(iconv_fallbacks fallbacks) const {
        EXPECT_EQ(0, libiconvctl(m_handle, ICONV_SET_FALLBACKS, &fallbacks));
    }

    /// Also checks that nothing is written past the room.
    Result Convert(const std::string& text, std::size_t room = kPlentyOfRoom) const {
        std::string buffer(room + 16, kGuard);
        std::string copy = text;
        char* in = copy.data();
        std::size_t inLeft = copy.size();
        char* out = buffer.data();
        std::size_t outLeft = room;
        errno = 0;
        const std::size_t replaced = libiconv(m_handle, &in, &inLeft, &out, &outLeft);
        const int error = replaced == kFailed ? errno : 0;
        EXPECT_EQ(text.size(), static_cast<std::size_t>(in - copy.data()) + inLeft);
        EXPECT_EQ(room, static_cast<std::size_t>(out - buffer.data()) + outLeft);
        EXPECT_EQ(std::string(16, kGuard), buffer.substr(room));
        return {replaced, error, buffer.substr(0, room - outLeft), text.size() - inLeft};
    }

private:
    libiconv_t m_handle;
};

inline Result ConvertOnce(const char* to, const char* from, const std::string& text) {
    const Handle handle(to, from);
    EXPECT_TRUE(handle.IsOpen()) << from << " to " << to;
    return handle.Convert(text);
}

inline void ExpectDone(const Result& result, const std::string& out, std::size_t replaced) {
    EXPECT_EQ(out, result.out);
    EXPECT_EQ(replaced, result.replaced);
}

inline void ExpectIncomplete(const Result& result) {
    EXPECT_EQ(kFailed, result.replaced);
    EXPECT_EQ(EINVAL, result.error);
}

/// What the C library makes of a whole text, if it takes all of it.
class CLibrary {
public:
    CLibrary(const char* to, const char* from) : m_handle(iconv_open(to, from)) { EXPECT_NE(NoIconv(), m_handle); }
    ~CLibrary() { iconv_close(m_handle); }
    CLibrary(const CLibrary&) = delete;
    CLibrary& operator=(const CLibrary&) = delete;

    bool Convert(const std::string& text, std::string& out) const {
        char buffer[64];
        std::string copy = text;
        char* in = copy.data();
        std::size_t inLeft = copy.size();
        char* outNext = buffer;
        std::size_t outLeft = sizeof buffer;
        const bool done = iconv(m_handle, &in, &inLeft, &outNext, &outLeft) == 0 && inLeft == 0;
        iconv(m_handle, nullptr, nullptr, nullptr, nullptr);
        out.assign(buffer, sizeof buffer - outLeft);
        return done;
    }

private:
    void* const m_handle;
};

inline std::string Utf8Of(std::uint32_t c) {
    const auto tail = [](std::uint32_t bits) { return static_cast<char>(0x80 | (bits & 0x3F)); };
    if (c < 0x80) return {static_cast<char>(c)};
    if (c < 0x800) return {static_cast<char>(0xC0 | c >> 6), tail(c)};
    if (c < 0x10000) return {static_cast<char>(0xE0 | c >> 12), tail(c >> 6), tail(c)};
    return {static_cast<char>(0xF0 | c >> 18), tail(c >> 12), tail(c >> 6), tail(c)};
}

inline std::string Pair(unsigned lead, unsigned trail) {
    return {static_cast<char>(lead), static_cast<char>(trail)};
}

}  // namespace test
