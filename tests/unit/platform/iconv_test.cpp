// One suite for GNU libiconv and for the stand-in: the library asks no more of either.
#include "src/platform/iconv/iconv.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/environment.h"
#include "support/forkedchild.h"
#include "support/tempdir.h"
#include "support/wait.h"

// The C library's own iconv, by its binary interface: its header may be GNU libiconv's,
// which gives these names another meaning.
extern "C" {
void* iconv_open(const char*, const char*);
std::size_t iconv(void*, char**, std::size_t*, char**, std::size_t*);
int iconv_close(void*);
}

namespace {

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

void MarkEachByte(const char*, std::size_t count, void (*write)(const unsigned int*, std::size_t, void*), void* arg,
                  void*) {
    const unsigned int mark = '?';
    for (std::size_t i = 0; i < count; ++i) write(&mark, 1, arg);
}

void MarkCharacter(unsigned int, void (*write)(const char*, std::size_t, void*), void* arg, void*) {
    write("?", 1, arg);
}

class Handle {
public:
    Handle(const char* to, const char* from) : m_handle(libiconv_open(to, from)) {}
    ~Handle() {
        if (IsOpen()) libiconv_close(m_handle);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    bool IsOpen() const { return m_handle != NoIconv(); }
    libiconv_t Get() const { return m_handle; }

    Handle& Install(iconv_fallbacks fallbacks) {
        EXPECT_EQ(0, libiconvctl(m_handle, ICONV_SET_FALLBACKS, &fallbacks));
        return *this;
    }
    Handle& WithMarks() { return Install({MarkEachByte, MarkCharacter, nullptr, nullptr, nullptr}); }

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

    void Reset() const { EXPECT_EQ(0u, libiconv(m_handle, nullptr, nullptr, nullptr, nullptr)); }

private:
    libiconv_t m_handle;
};

Result ConvertMarked(const char* to, const char* from, const std::string& text) {
    Handle handle(to, from);
    EXPECT_TRUE(handle.IsOpen()) << from << " to " << to;
    return handle.WithMarks().Convert(text);
}

void ExpectDone(const Result& result, const std::string& out, std::size_t replaced) {
    EXPECT_EQ(out, result.out);
    EXPECT_EQ(replaced, result.replaced);
}

void ExpectIncomplete(const Result& result) {
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

std::string Utf8Of(std::uint32_t c) {
    const auto tail = [](std::uint32_t bits) { return static_cast<char>(0x80 | (bits & 0x3F)); };
    if (c < 0x80) return {static_cast<char>(c)};
    if (c < 0x800) return {static_cast<char>(0xC0 | c >> 6), tail(c)};
    if (c < 0x10000) return {static_cast<char>(0xE0 | c >> 12), tail(c >> 6), tail(c)};
    return {static_cast<char>(0xF0 | c >> 18), tail(c >> 12), tail(c >> 6), tail(c)};
}

std::string Pair(unsigned lead, unsigned trail) {
    return {static_cast<char>(lead), static_cast<char>(trail)};
}

// ---- Invalid and incomplete input ----

TEST(IconvGbk, InvalidInputIsReplacedByteByByte) {
    ExpectDone(ConvertMarked("UTF-8", "GBK", "\x81\x30\x61"), "?0a", 1);
    ExpectDone(ConvertMarked("UTF-8", "GBK", "\xFF\xFF"), "??", 2);
    ExpectDone(ConvertMarked("UTF-8", "GBK", "\x80"), "?", 1);
    ExpectDone(ConvertMarked("UTF-8", "GBK", "\x81\x7Fz"), "?\x7Fz", 1);
    ExpectDone(ConvertMarked("UTF-8", "GBK", "\x81\xFFz"), "??z", 2);
}

TEST(IconvGbk, DecodingGoesOnAtTheByteBehindAnInvalidOne) {
    // AA A1 is unassigned; A1 B0 and A1 A1 are quotation mark and blank.
    ExpectDone(ConvertMarked("UTF-8", "GBK", "\xAA\xA1\xB0\xA1\xA1"), "?\xE2\x80\x9C\xE3\x80\x80", 1);
}

TEST(IconvGbk, AnIncompleteCharacterAtTheEndFails) {
    ExpectIncomplete(ConvertMarked("UTF-8", "GBK", "\xAA\xA1\xB0\xA1"));
    for (unsigned lead = 0x81; lead <= 0xFE; ++lead) {
        SCOPED_TRACE(lead);
        const Result result = ConvertMarked("UTF-8", "GBK", "ab" + std::string(1, static_cast<char>(lead)));
        ExpectIncomplete(result);
        EXPECT_EQ("ab", result.out);
        EXPECT_EQ(2u, result.read);
    }
}

TEST(IconvUtf8, AnIncompleteCharacterGoesByTheAnnouncedLengthAlone) {
    ExpectIncomplete(ConvertMarked("GBK", "UTF-8", "\xE4\x41"));
    ExpectDone(ConvertMarked("GBK", "UTF-8", "\xE4\x41\x42"), "?AB", 1);
    ExpectIncomplete(ConvertMarked("GBK", "UTF-8", "\xC3"));
    ExpectIncomplete(ConvertMarked("GBK", "UTF-8", "\xE4\xB8"));
    ExpectIncomplete(ConvertMarked("GBK", "UTF-8", "\xF0\x41\x42"));
    ExpectIncomplete(ConvertMarked("GBK", "UTF-8", "\xF7\xBF\xBF"));
    ExpectDone(ConvertMarked("GBK", "UTF-8", "\xC3\x41"), "?A", 1);
    ExpectDone(ConvertMarked("GBK", "UTF-8", "\xF0\x41\x42\x43"), "?ABC", 1);
}

TEST(IconvUtf8, BytesThatBeginNoCharacterAreInvalidAtOnce) {
    for (const unsigned byte : {0x80u, 0xBFu, 0xC0u, 0xC1u, 0xF8u, 0xFBu, 0xFCu, 0xFDu, 0xFEu, 0xFFu}) {
        SCOPED_TRACE(byte);
        ExpectDone(ConvertMarked("ISO-8859-1", "UTF-8", std::string(1, static_cast<char>(byte))), "?", 1);
    }
}

TEST(IconvUtf8, OverlongFormsAreInvalid) {
    ExpectDone(ConvertMarked("GBK", "UTF-8", "\xC1\xBF"), "??", 2);
    ExpectDone(ConvertMarked("GBK", "UTF-8", "\xE0\x9F\xBF"), "???", 3);
    ExpectDone(ConvertMarked("GBK", "UTF-8", "\xF0\x8F\xBF\xBF"), "????", 4);
}

TEST(IconvUtf8, SurrogatesAreInvalid) {
    ExpectDone(ConvertMarked("GBK", "UTF-8", "\xED\xA0\x80"), "???", 3);
    ExpectDone(ConvertMarked("GBK", "UTF-8", "\xED\xBF\xBF"), "???", 3);
    ExpectDone(ConvertMarked("UTF-16BE", "UTF-8", "\xED\x9F\xBF"), "\xD7\xFF", 0);
    ExpectDone(ConvertMarked("UTF-16BE", "UTF-8", "\xEE\x80\x80"), Bytes("\xE0\x00"), 0);
}

TEST(IconvUtf8, CodePointsAbove10FFFFAreInvalid) {
    ExpectDone(ConvertMarked("GBK", "UTF-8", "\xF4\x90\x80\x80"), "????", 4);
    ExpectDone(ConvertMarked("GBK", "UTF-8", "\xF5\x80\x80\x80"), "????", 4);
    ExpectDone(ConvertMarked("UTF-16BE", "UTF-8", "\xF4\x8F\xBF\xBF"), "\xDB\xFF\xDF\xFF", 0);
}

TEST(IconvLatin1, EveryByteIsACharacter) {
    std::string latin1;
    std::string utf8;
    for (unsigned byte = 0; byte < 0x100; ++byte) {
        latin1 += static_cast<char>(byte);
        utf8 += Utf8Of(byte);
    }
    ExpectDone(ConvertMarked("UTF-8", "ISO-8859-1", latin1), utf8, 0);
    ExpectDone(ConvertMarked("ISO-8859-1", "UTF-8", utf8), latin1, 0);
}

TEST(Iconv, EmptyTextIsConvertedToNothing) {
    ExpectDone(ConvertMarked("UTF-8", "GBK", ""), "", 0);
    ExpectDone(ConvertMarked("UTF-16", "UTF-8", ""), "", 0);
}

TEST(Iconv, ANulIsACharacterLikeAnyOther) {
    ExpectDone(ConvertMarked("UTF-8", "GBK", Bytes("a\0\xD6\xD0")), Bytes("a\0\xE4\xB8\xAD"), 0);
}

// ---- What the target lacks ----

TEST(Iconv, ACharacterThatTheTargetLacksGivesOneMark) {
    ExpectDone(ConvertMarked("GBK", "UTF-8", "a\xE2\x82\xAC z"), "a? z", 1);  // U+20AC
    ExpectDone(ConvertMarked("GBK", "UTF-8", "\xF0\x9F\x98\x80"), "?", 1);
    ExpectDone(ConvertMarked("ISO-8859-1", "UTF-8", "\xC4\x80\xC3\xBF"), "?\xFF", 1);
    ExpectDone(ConvertMarked("ISO-8859-1", "GBK", "\xD6\xD0\x61"), "?a", 1);
    ExpectDone(ConvertMarked("GBK", "ISO-8859-1", "\xE9\xB7"), "\xA8\xA6\xA1\xA4", 0);
    ExpectDone(ConvertMarked("GBK", "ISO-8859-1", "\xE4"), "?", 1);
}

TEST(Iconv, LanguageTagsVanish) {
    ExpectDone(ConvertMarked("GBK", "UTF-8", "a\xF3\xA0\x80\x80\xF3\xA0\x81\xBF z"), "a z", 0);
    ExpectDone(ConvertMarked("ISO-8859-5", "UTF-8", "a\xF3\xA0\x80\x81z"), "az", 0);
    ExpectDone(ConvertMarked("GBK", "UTF-8", "\xF3\x9F\xBF\xBF\xF3\xA0\x82\x80"), "??", 2);  // the neighbours
    ExpectDone(ConvertMarked("UTF-16BE", "UTF-8", "\xF3\xA0\x80\x81"), Bytes("\xDB\x40\xDC\x01"), 0);
}

TEST(Iconv, TheResultIsTheNumberOfReplacements) {
    // Two invalid bytes, two characters without representation, a tag.
    ExpectDone(ConvertMarked("GBK", "UTF-8", "\xFF\xE2\x82\xAC-\xF3\xA0\x80\x81\xF0\x9F\x98\x80\xC0"),
               "??"
               "-??",
               4);
}

// ---- Fallbacks ----

TEST(IconvFallbacks, WithoutThemTheFirstBadCharacterStopsTheConversion) {
    const Result invalid = Handle("UTF-8", "GBK").Convert("ab\xFFz");
    EXPECT_EQ(kFailed, invalid.replaced);
    EXPECT_EQ(EILSEQ, invalid.error);
    EXPECT_EQ("ab", invalid.out);
    EXPECT_EQ(2u, invalid.read);

    const Result unrepresentable = Handle("GBK", "UTF-8").Convert("a\xE2\x82\xACz");
    EXPECT_EQ(kFailed, unrepresentable.replaced);
    EXPECT_EQ(EILSEQ, unrepresentable.error);
    EXPECT_EQ("a", unrepresentable.out);
    EXPECT_EQ(1u, unrepresentable.read);
}

TEST(IconvFallbacks, AreCalledWithTheBytesAndTheData) {
    std::vector<std::string> seen;
    Handle handle("UTF-8", "GBK");
    handle.Install({[](const char* bytes, std::size_t count, void (*)(const unsigned int*, std::size_t, void*), void*,
                       void* data) { static_cast<std::vector<std::string>*>(data)->emplace_back(bytes, count); },
                    nullptr, nullptr, nullptr, &seen});
    ExpectDone(handle.Convert("a\xFF\x81\x30"), "a0", 2);
    EXPECT_EQ((std::vector<std::string>{"\xFF", "\x81"}), seen);
}

TEST(IconvFallbacks, AreCalledWithTheCodePoint) {
    std::vector<unsigned> seen;
    Handle handle("GBK", "UTF-8");
    handle.Install({nullptr,
                    [](unsigned codePoint, void (*)(const char*, std::size_t, void*), void*, void* data) {
                        static_cast<std::vector<unsigned>*>(data)->push_back(codePoint);
                    },
                    nullptr, nullptr, &seen});
    ExpectDone(handle.Convert("a\xE2\x82\xAC\xF0\x9F\x98\x80z"), "az", 2);
    EXPECT_EQ((std::vector<unsigned>{0x20AC, 0x1F600}), seen);
}

TEST(IconvFallbacks, AreNotCalledForAnIncompleteCharacter) {
    int calls = 0;
    Handle handle("UTF-8", "GBK");
    handle.Install({[](const char*, std::size_t, void (*)(const unsigned int*, std::size_t, void*), void*, void* data) {
                        ++*static_cast<int*>(data);
                    },
                    nullptr, nullptr, nullptr, &calls});
    ExpectIncomplete(handle.Convert("a\xD6"));
    EXPECT_EQ(0, calls);
}

TEST(IconvFallbacks, ReplacementsOfInputAreEncoded) {
    Handle handle("GBK", "UTF-8");
    handle.Install(
        {[](const char*, std::size_t, void (*write)(const unsigned int*, std::size_t, void*), void* arg, void*) {
             const unsigned int replacement[] = {0x4E2D, 0x20AC, 0xE0041};
             write(replacement, 2, arg);
             write(replacement + 2, 1, arg);
             write(replacement, 1, arg);
         },
         MarkCharacter, nullptr, nullptr, nullptr});
    ExpectDone(handle.Convert("\xFF"), "\xD6\xD0?\xD6\xD0", 1);
}

TEST(IconvFallbacks, ReplacementsOfCharactersAreTakenAsTheyAre) {
    Handle handle("GBK", "UTF-8");
    handle.Install({nullptr,
                    [](unsigned, void (*write)(const char*, std::size_t, void*), void* arg, void*) {
                        write("<\xFF", 2, arg);
                        write(">", 1, arg);
                    },
                    nullptr, nullptr, nullptr});
    ExpectDone(handle.Convert("\xE2\x82\xAC"), "<\xFF>", 1);
}

TEST(IconvFallbacks, AreRemovedByANullArgument) {
    Handle handle("UTF-8", "GBK");
    handle.WithMarks();
    EXPECT_EQ(0, libiconvctl(handle.Get(), ICONV_SET_FALLBACKS, nullptr));
    EXPECT_EQ(EILSEQ, handle.Convert("\xFF").error);
}

TEST(Iconv, AnUnknownRequestIsRefused) {
    const Handle handle("UTF-8", "GBK");
    errno = 0;
    EXPECT_EQ(-1, libiconvctl(handle.Get(), 99, nullptr));
    EXPECT_EQ(EINVAL, errno);
}

// ---- Room ----

TEST(IconvRoom, ACharacterThatDoesNotFitChangesNothing) {
    const Handle handle("UTF-8", "GBK");
    for (std::size_t room = 0; room < 3; ++room) {
        const Result result = handle.Convert("\xD6\xD0", room);
        EXPECT_EQ(kFailed, result.replaced);
        EXPECT_EQ(E2BIG, result.error);
        EXPECT_EQ("", result.out);
        EXPECT_EQ(0u, result.read);
    }
    ExpectDone(handle.Convert("\xD6\xD0", 3), "\xE4\xB8\xAD", 0);
}

TEST(IconvRoom, TheConversionCanBeContinuedBehindWhatFitted) {
    const Handle handle("GBK", "UTF-8");
    const std::string text = "a\xE4\xB8\xAD\xE6\x96\x87z";
    const Result first = handle.Convert(text, 4);
    EXPECT_EQ(E2BIG, first.error);
    EXPECT_EQ("a\xD6\xD0", first.out);
    EXPECT_EQ(4u, first.read);
    ExpectDone(handle.Convert(text.substr(first.read)), "\xCE\xC4z", 0);
}

TEST(IconvRoom, AReplacementThatDoesNotFitFails) {
    Handle decoding("UTF-8", "GBK");
    EXPECT_EQ(E2BIG, decoding.WithMarks().Convert("ab\xFF", 2).error);
    Handle encoding("GBK", "UTF-8");
    EXPECT_EQ(E2BIG, encoding.WithMarks().Convert("ab\xE2\x82\xAC", 2).error);
    encoding.Install({nullptr,
                      [](unsigned, void (*write)(const char*, std::size_t, void*), void* arg, void*) {
                          write("<", 1, arg);
                          write("euro", 4, arg);
                          write(">", 1, arg);
                      },
                      nullptr, nullptr, nullptr});
    EXPECT_EQ(E2BIG, encoding.Convert("ab\xE2\x82\xAC", 5).error);
    ExpectDone(encoding.Convert("ab\xE2\x82\xAC", 8), "ab<euro>", 1);
}

TEST(IconvRoom, EvenATagNeedsRoom) {
    EXPECT_EQ(E2BIG, Handle("GBK", "UTF-8").Convert("\xF3\xA0\x80\x81", 0).error);
}

// ---- UTF-16 and UTF-32 ----

TEST(IconvUtf16, IsWrittenBigEndianBehindAMarkOnFirstUse) {
    const Handle handle("UTF-16", "UTF-8");
    ExpectDone(handle.Convert("a\xE4\xB8\xAD"), Bytes("\xFE\xFF\0a\x4E\x2D"), 0);
    ExpectDone(handle.Convert("b"), Bytes("\0b"), 0);
    handle.Reset();
    ExpectDone(handle.Convert("\xF0\x9F\x98\x80"), Bytes("\xFE\xFF\xD8\x3D\xDE\0"), 0);
}

TEST(IconvUtf16, TheMarkComesWithTheCharacterOrNotAtAll) {
    const Handle handle("UTF-16", "ISO-8859-1");
    const Result tight = handle.Convert("a", 3);
    EXPECT_EQ(E2BIG, tight.error);
    EXPECT_EQ("", tight.out);
    EXPECT_EQ(0u, tight.read);
    ExpectDone(handle.Convert("a", 4), Bytes("\xFE\xFF\0a"), 0);
}

TEST(IconvUtf16, FillsItsBufferToTheLastByte) {
    Handle handle("UTF-16", "ISO-8859-5");
    const Result result = handle.WithMarks().Convert("\xD0\xD1\xD2", (3 + 1) * 2);
    ExpectDone(result, "\xFE\xFF\x04\x30\x04\x31\x04\x32", 0);
}

TEST(IconvUtf16, IsReadBigEndianUnlessAMarkSaysOtherwise) {
    ExpectDone(ConvertMarked("UTF-8", "UTF-16", Bytes("\0a\x4E\x2D")), "a\xE4\xB8\xAD", 0);
    ExpectDone(ConvertMarked("UTF-8", "UTF-16", Bytes("\xFE\xFF\0a")), "a", 0);
    ExpectDone(ConvertMarked("UTF-8", "UTF-16", Bytes("\xFF\xFE\x61\0\x3D\xD8\x00\xDE")), "a\xF0\x9F\x98\x80", 0);
    ExpectDone(ConvertMarked("UTF-8", "UTF-16LE", Bytes("a\0")), "a", 0);
    ExpectDone(ConvertMarked("UTF-8", "UTF-16BE", Bytes("\xFE\xFF\0a")), "\xEF\xBB\xBF\x61", 0);
}

TEST(IconvUtf16, AMarkOfTheOtherOrderIsWrittenWhereTheOrderIsNamed) {
    ExpectDone(ConvertMarked("UTF-16BE", "UTF-8", "a\xEF\xBF\xBEz"), Bytes("\0a\xFF\xFE\0z"), 0);
    ExpectDone(ConvertMarked("UTF-16LE", "UTF-8", "a\xEF\xBF\xBEz"), Bytes("a\0\xFE\xFFz\0"), 0);
    ExpectDone(ConvertMarked("UTF-8", "UTF-16BE", "\xFF\xFE"), "\xEF\xBF\xBE", 0);
    ExpectDone(ConvertMarked("UTF-32BE", "UTF-8", "\xEF\xBF\xBE"), Bytes("\0\0\xFF\xFE"), 0);
}

TEST(IconvUtf16, AMarkOfTheOtherOrderIsNotWrittenWhereTheMarkTellsTheOrder) {
    ExpectDone(ConvertMarked("UTF-16", "UTF-8", "\xEF\xBF\xBE\x61"), "?\xFE\xFF" + Bytes("\0a"), 1);
}

TEST(IconvUtf16, InvalidInputIsReplacedUnitByUnit) {
    ExpectDone(ConvertMarked("UTF-8", "UTF-16BE", Bytes("\xDC\x00\0a")), "??a", 1);
    ExpectDone(ConvertMarked("UTF-8", "UTF-16BE", Bytes("\xD8\x00\0a")), "??a", 1);
    ExpectIncomplete(ConvertMarked("UTF-8", "UTF-16BE", Bytes("\0a\xD8\x00")));
    ExpectIncomplete(ConvertMarked("UTF-8", "UTF-16BE", Bytes("\0a\0")));
}

TEST(IconvUtf32, IsWrittenBigEndianBehindAMarkAndReadByItsMark) {
    ExpectDone(ConvertMarked("UTF-32", "UTF-8", "a"), Bytes("\0\0\xFE\xFF\0\0\0a"), 0);
    ExpectDone(ConvertMarked("UTF-8", "UTF-32", Bytes("\xFF\xFE\0\0a\0\0\0")), "a", 0);
    ExpectDone(ConvertMarked("UTF-8", "UTF-32", Bytes("\0\x01\xF6\0")), "\xF0\x9F\x98\x80", 0);
    ExpectDone(ConvertMarked("UTF-8", "UTF-32BE", Bytes("\0\x11\0\0\0\0\0a")), "????a", 1);
}

// ---- Other sets ----

TEST(IconvOtherSets, ConvertBothWays) {
    ExpectDone(ConvertMarked("UTF-8", "ISO-8859-5", "\xD0z"), "\xD0\xB0z", 0);
    ExpectDone(ConvertMarked("ISO-8859-5", "UTF-8", "\xD0\xB0z\xE4\xB8\xAD"), "\xD0z?", 1);
    ExpectDone(ConvertMarked("GBK", "KOI8-R", "\xC1"), "\xA7\xD1", 0);
    ExpectDone(ConvertMarked("KOI8-R", "ISO-8859-5", "\xD0"), "\xC1", 0);
    ExpectDone(ConvertMarked("UTF-8", "EUC-JP", "\xB0\xA1"), "\xE4\xBA\x9C", 0);
}

TEST(IconvOtherSets, TreatBadInputAlike) {
    ExpectDone(ConvertMarked("UTF-8", "US-ASCII", "a\x80\xFFz"), "a??z", 2);
    ExpectDone(ConvertMarked("UTF-8", "EUC-JP", "\xFF\xB0\xA1\xB0\x41"), "?\xE4\xBA\x9C?A", 2);
    ExpectIncomplete(ConvertMarked("UTF-8", "EUC-JP", "a\xB0"));
    EXPECT_EQ(EILSEQ, Handle("UTF-8", "US-ASCII").Convert("\x80").error);
    EXPECT_EQ(EILSEQ, Handle("US-ASCII", "UTF-8").Convert("\xC3\xA9").error);
    EXPECT_EQ(E2BIG, Handle("UTF-8", "ISO-8859-5").Convert("\xD0", 1).error);
    EXPECT_EQ(E2BIG, Handle("EUC-JP", "UTF-8").Convert("\xE4\xBA\x9C", 1).error);
}

TEST(IconvOtherSets, KeepTheirShiftStateUntilReset) {
    const Handle handle("ISO-2022-JP", "UTF-8");
    ExpectDone(handle.Convert("\xE4\xBA\x9C"), "\x1B$B0!", 0);
    ExpectDone(handle.Convert("\xE4\xBA\x9C"), "0!", 0);
    char buffer[8];
    char* out = buffer;
    std::size_t left = sizeof buffer;
    EXPECT_EQ(0u, libiconv(handle.Get(), nullptr, nullptr, &out, &left));
    EXPECT_EQ("\x1B(B", std::string(buffer, sizeof buffer - left));
    ExpectDone(handle.Convert("\xE4\xBA\x9C"), "\x1B$B0!", 0);
}

TEST(IconvOtherSets, Cp936HasTheEuroSignThatGbkLacks) {
    ExpectDone(ConvertMarked("UTF-8", "CP936", "\x80\xD6\xD0"), "\xE2\x82\xAC\xE4\xB8\xAD", 0);
    ExpectDone(ConvertMarked("CP936", "UTF-8", "\xE2\x82\xAC"), "\x80", 0);
}

// ---- Names ----

TEST(IconvNames, AreComparedWithoutRegardToCase) {
    ExpectDone(ConvertMarked("utf-8", "gbk", "\xD6\xD0\x80"), "\xE4\xB8\xAD?", 1);
    ExpectDone(ConvertMarked("Utf-8", "Iso-8859-1", "\xE9"), "\xC3\xA9", 0);
    ExpectDone(ConvertMarked("utf-16", "UTF-8", "a"), Bytes("\xFE\xFF\0a"), 0);
}

TEST(IconvNames, AliasesWork) {
    for (const char* alias : {"ISO_8859-1", "ISO_8859-1:1987", "ISO-IR-100", "CP819", "IBM819", "LATIN1", "L1",
                              "csISOLatin1", "iso8859-1", "latin1"}) {
        ExpectDone(ConvertMarked("UTF-8", alias, "\xE9"), "\xC3\xA9", 0);
    }
}

TEST(IconvNames, UnknownOnesAreRefused) {
    errno = 0;
    EXPECT_EQ(NoIconv(), libiconv_open("UTF-8", "no such set"));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(NoIconv(), libiconv_open("no such set", "UTF-8"));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(NoIconv(), libiconv_open("no such set", "nor this"));
}

void ExitAfterConvertingFromGbk() {
    Handle handle("UTF-8", "GBK");
    std::exit(handle.IsOpen() && handle.WithMarks().Convert("\xD6\xD0\x80").out == "\xE4\xB8\xAD?" ? 7 : 1);
}

TEST(IconvNames, GbkIsKnownWhereTheCLibraryCannotLoadIt) {
    // Started anew, since the C library reads the variable as the process starts.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const test::TempDir dir;
    dir.Write("gconv-modules", "module GBK// INTERNAL nowhere 1\nmodule INTERNAL GBK// nowhere 1\n");
    const test::ScopedEnv modules("GCONV_PATH", dir.Path());
    EXPECT_EXIT(ExitAfterConvertingFromGbk(), testing::ExitedWithCode(7), "");
}

// ---- Against the C library and against slow models ----

TEST(IconvGbk, EveryPairOfBytesIsReadAsTheCLibraryReadsIt) {
    const CLibrary theirs("UTF-8", "GBK");
    Handle ours("UTF-8", "GBK");
    ours.WithMarks();
    int characters = 0;
    for (unsigned lead = 0x81; lead <= 0xFE; ++lead) {
        for (unsigned trail = 0; trail <= 0xFF; ++trail) {
            std::string expected;
            const Result result = ours.Convert(Pair(lead, trail));
            if (theirs.Convert(Pair(lead, trail), expected)) {
                ++characters;
                ASSERT_EQ(expected, result.out) << lead << ' ' << trail;
                ASSERT_EQ(0u, result.replaced);
            } else if (trail >= 0x81 && trail <= 0xFE) {
                ASSERT_EQ(EINVAL, result.error) << lead << ' ' << trail;
            } else {
                const std::string second = trail < 0x80 ? std::string(1, static_cast<char>(trail)) : "?";
                ASSERT_EQ("?" + second, result.out) << lead << ' ' << trail;
            }
        }
    }
    EXPECT_EQ(21791, characters);
}

TEST(IconvGbk, EveryCodePointIsWrittenAsTheCLibraryWritesIt) {
    const CLibrary theirs("GBK", "UTF-8");
    Handle ours("GBK", "UTF-8");
    ours.WithMarks();
    int pairs = 0;
    for (std::uint32_t codePoint = 0; codePoint < 0x110000; ++codePoint) {
        if (codePoint >= 0xD800 && codePoint < 0xE000) continue;
        std::string expected;
        const Result result = ours.Convert(Utf8Of(codePoint), 8);
        if (!theirs.Convert(Utf8Of(codePoint), expected) || codePoint == 0x20AC) {
            ASSERT_EQ("?", result.out) << codePoint;
            ASSERT_EQ(1u, result.replaced) << codePoint;
        } else {
            if (expected.size() == 2) ++pairs;
            ASSERT_EQ(expected, result.out) << codePoint;
            ASSERT_EQ(0u, result.replaced) << codePoint;
        }
    }
    EXPECT_EQ(21791, pairs);
}

/// What a text should become, character by character: slow, but plain to see.
struct Model {
    bool complete = true;
    std::size_t replaced = 0;
    std::string out;

    void Replace() {
        out += '?';
        ++replaced;
    }
};

Model ModelOfGbkToUtf8(const std::string& text) {
    static const CLibrary library("UTF-8", "GBK");
    Model model;
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        std::string character;
        const bool isLead = byte >= 0x81 && byte <= 0xFE;
        if (isLead && i + 1 == text.size()) {
            model.complete = false;
            return model;
        }
        if (isLead && library.Convert(text.substr(i, 2), character)) {
            model.out += character;
            i += 2;
            continue;
        }
        if (byte < 0x80) {
            model.out += text[i];
        } else {
            model.Replace();
        }
        ++i;
    }
    return model;
}

/// @return the valid character that the text begins with, or -1
long FirstOfUtf8(const std::string& text, std::size_t length) {
    for (const auto& [first, last] : {std::pair<std::uint32_t, std::uint32_t>{0, 0xD7FF}, {0xE000, 0x10FFFF}}) {
        std::uint32_t low = first;
        std::uint32_t high = last;
        // UTF-8 sorts as code points do.
        while (low < high) {
            const std::uint32_t middle = low + (high - low) / 2;
            if (Utf8Of(middle) < text.substr(0, length)) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        if (Utf8Of(low) == text.substr(0, length)) return static_cast<long>(low);
    }
    return -1;
}

Model ModelOfUtf8ToGbk(const std::string& text) {
    static const CLibrary library("GBK", "UTF-8");
    Model model;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const bool isLead = lead >= 0xC2 && lead <= 0xF7;
        const std::size_t length = lead < 0x80 || !isLead ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        if (i + length > text.size()) {
            model.complete = false;
            return model;
        }
        const long codePoint = FirstOfUtf8(text.substr(i), length);
        std::string character;
        const bool isTag = codePoint >= 0xE0000 && codePoint <= 0xE007F;
        if (codePoint >= 0 && codePoint != 0x20AC && library.Convert(text.substr(i, length), character)) {
            model.out += character;
        } else if (!isTag) {
            model.Replace();
        }
        i += codePoint >= 0 ? length : 1;
    }
    return model;
}

/// Texts that are partly sound, partly spoilt.
class TextMaker {
public:
    explicit TextMaker(unsigned seed) : m_random(seed) {}

    template <class MakeCharacter>
    std::string Make(MakeCharacter makeCharacter) {
        std::string text;
        for (unsigned left = Below(12); left > 0; --left) {
            switch (Below(4)) {
                case 0:
                    text += static_cast<char>(Below(0x80));
                    break;
                case 1:
                    text += static_cast<char>(Below(0x100));
                    break;
                default:
                    text += makeCharacter(*this);
                    break;
            }
        }
        if (!text.empty() && Below(3) == 0) text.pop_back();
        return text;
    }

    unsigned Below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }

private:
    std::mt19937 m_random;
};

void ExpectAsModelled(const Handle& handle, const std::string& text, const Model& model) {
    const Result result = handle.Convert(text);
    ASSERT_EQ(model.complete, result.error == 0) << testing::PrintToString(text);
    ASSERT_EQ(model.out, result.out) << testing::PrintToString(text);
    if (!model.complete) return;
    ASSERT_EQ(model.replaced, result.replaced) << testing::PrintToString(text);
}

TEST(IconvModel, RandomGbkIsReadAsModelled) {
    TextMaker maker(20240301);
    Handle handle("UTF-8", "GBK");
    handle.WithMarks();
    for (int i = 0; i < 20000 && !HasFatalFailure(); ++i) {
        const std::string text =
            maker.Make([](TextMaker& m) { return Pair(0x81 + m.Below(0x7E), 0x40 + m.Below(0xBF)); });
        ExpectAsModelled(handle, text, ModelOfGbkToUtf8(text));
    }
}

TEST(IconvModel, RandomUtf8IsReadAsModelled) {
    TextMaker maker(20240302);
    Handle handle("GBK", "UTF-8");
    handle.WithMarks();
    for (int i = 0; i < 10000 && !HasFatalFailure(); ++i) {
        const std::string text = maker.Make([](TextMaker& m) {
            switch (m.Below(4)) {
                case 0:
                    return Utf8Of(0x4E00 + m.Below(0x5200));
                case 1:
                    return Utf8Of(0xD000 + m.Below(0x1800));
                case 2:
                    return Utf8Of(0xDFF00 + m.Below(0x200));
                default:
                    return Utf8Of(m.Below(0x130000));
            }
        });
        ExpectAsModelled(handle, text, ModelOfUtf8ToGbk(text));
    }
}

// ---- Threads ----

TEST(IconvThreads, EightThreadsMayOpenAtOnce) {
    std::atomic<bool> go{false};
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            test::WaitFor([&] { return go.load(); });
            Handle handle("UTF-8", "GBK");
            if (handle.IsOpen() && handle.Convert("\xD6\xD0").out == "\xE4\xB8\xAD") ++good;
        });
    }
    go = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(8, good);
}

// ---- fork ----

bool OpensAnotherSet() {
    const Handle handle("UTF-8", "EUC-JP");
    return handle.IsOpen() && handle.Convert("\xB0\xA1").out == "\xE4\xBA\x9C";
}

TEST(IconvFork, AChildOpensASetWhileOtherThreadsWereOpeningTheirs) {
    if (!test::kForkedChildMayAllocate) GTEST_SKIP() << "a forked child may not allocate here";
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&stop] {
            while (!stop) Handle("CP1251", "KOI8-R");
        });
    }
    int status = 0;
    for (int i = 0; i < 200 && status == 0; ++i) {
        status = test::InForkedChild(OpensAnotherSet);
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(0, status);
}

}  // namespace
