// UTF-8, ISO-8859-1, UTF-16 and UTF-32.
#include "unit/platform/iconvtest.h"

namespace test {

namespace {

TEST(IconvUtf8, AnIncompleteCharacterGoesByTheAnnouncedLengthAlone) {
    ExpectIncomplete(ConvertOnce("GBK", "UTF-8", "\xE4\x41"));
    ExpectDone(ConvertOnce("GBK", "UTF-8", "\xE4\x41\x42"), "?AB", 1);
    ExpectIncomplete(ConvertOnce("GBK", "UTF-8", "\xC3"));
    ExpectIncomplete(ConvertOnce("GBK", "UTF-8", "\xE4\xB8"));
    ExpectIncomplete(ConvertOnce("GBK", "UTF-8", "\xF0\x41\x42"));
    ExpectIncomplete(ConvertOnce("GBK", "UTF-8", "\xF7\xBF\xBF"));
    ExpectDone(ConvertOnce("GBK", "UTF-8", "\xC3\x41"), "?A", 1);
    ExpectDone(ConvertOnce("GBK", "UTF-8", "\xF0\x41\x42\x43"), "?ABC", 1);
}

TEST(IconvUtf8, BytesThatBeginNoCharacterAreInvalidAtOnce) {
    for (const unsigned byte : {0x80u, 0xBFu, 0xC0u, 0xC1u, 0xF8u, 0xFBu, 0xFCu, 0xFDu, 0xFEu, 0xFFu}) {
        SCOPED_TRACE(byte);
        ExpectDone(ConvertOnce("ISO-8859-1", "UTF-8", std::string(1, static_cast<char>(byte))), "?", 1);
    }
}

TEST(IconvUtf8, OverlongFormsAreInvalid) {
    ExpectDone(ConvertOnce("GBK", "UTF-8", "\xC1\xBF"), "??", 2);
    ExpectDone(ConvertOnce("GBK", "UTF-8", "\xE0\x9F\xBF"), "???", 3);
    ExpectDone(ConvertOnce("GBK", "UTF-8", "\xF0\x8F\xBF\xBF"), "????", 4);
}

TEST(IconvUtf8, SurrogatesAreInvalid) {
    ExpectDone(ConvertOnce("GBK", "UTF-8", "\xED\xA0\x80"), "???", 3);
    ExpectDone(ConvertOnce("GBK", "UTF-8", "\xED\xBF\xBF"), "???", 3);
    ExpectDone(ConvertOnce("UTF-16BE", "UTF-8", "\xED\x9F\xBF"), "\xD7\xFF", 0);
    ExpectDone(ConvertOnce("UTF-16BE", "UTF-8", "\xEE\x80\x80"), Bytes("\xE0\x00"), 0);
}

TEST(IconvUtf8, CodePointsAbove10FFFFAreInvalid) {
    ExpectDone(ConvertOnce("GBK", "UTF-8", "\xF4\x90\x80\x80"), "????", 4);
    ExpectDone(ConvertOnce("GBK", "UTF-8", "\xF5\x80\x80\x80"), "????", 4);
    ExpectDone(ConvertOnce("UTF-16BE", "UTF-8", "\xF4\x8F\xBF\xBF"), "\xDB\xFF\xDF\xFF", 0);
}

TEST(IconvLatin1, EveryByteIsACharacter) {
    std::string latin1;
    std::string utf8;
    for (unsigned byte = 0; byte < 0x100; ++byte) {
        latin1 += static_cast<char>(byte);
        utf8 += Utf8Of(byte);
    }
    ExpectDone(ConvertOnce("UTF-8", "ISO-8859-1", latin1), utf8, 0);
    ExpectDone(ConvertOnce("ISO-8859-1", "UTF-8", utf8), latin1, 0);
}

// ---- UTF-16 and UTF-32 ----

TEST(IconvUtf16, IsWrittenBigEndianBehindAMarkOnFirstUse) {
    const Handle handle("UTF-16", "UTF-8");
    ExpectDone(handle.Convert("a\xE4\xB8\xAD"), Bytes("\xFE\xFF\0a\x4E\x2D"), 0);
    ExpectDone(handle.Convert("b"), Bytes("\0b"), 0);
    ExpectDone(handle.Convert("\xF0\x9F\x98\x80"), Bytes("\xD8\x3D\xDE\0"), 0);
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
    const Handle handle("UTF-16", "ISO-8859-5");
    const Result result = handle.Convert("\xD0\xD1\xD2", (3 + 1) * 2);
    ExpectDone(result, "\xFE\xFF\x04\x30\x04\x31\x04\x32", 0);
}

TEST(IconvUtf16, IsReadBigEndianUnlessAMarkSaysOtherwise) {
    ExpectDone(ConvertOnce("UTF-8", "UTF-16", Bytes("\0a\x4E\x2D")), "a\xE4\xB8\xAD", 0);
    ExpectDone(ConvertOnce("UTF-8", "UTF-16", Bytes("\xFE\xFF\0a")), "a", 0);
    ExpectDone(ConvertOnce("UTF-8", "UTF-16", Bytes("\xFF\xFE\x61\0\x3D\xD8\x00\xDE")), "a\xF0\x9F\x98\x80", 0);
    ExpectDone(ConvertOnce("UTF-8", "UTF-16LE", Bytes("a\0")), "a", 0);
    ExpectDone(ConvertOnce("UTF-8", "UTF-16BE", Bytes("\xFE\xFF\0a")), "\xEF\xBB\xBF\x61", 0);
}

TEST(IconvUtf16, AMarkOfTheOtherOrderIsWrittenWhereTheOrderIsNamed) {
    ExpectDone(ConvertOnce("UTF-16BE", "UTF-8", "a\xEF\xBF\xBEz"), Bytes("\0a\xFF\xFE\0z"), 0);
    ExpectDone(ConvertOnce("UTF-16LE", "UTF-8", "a\xEF\xBF\xBEz"), Bytes("a\0\xFE\xFFz\0"), 0);
    ExpectDone(ConvertOnce("UTF-8", "UTF-16BE", "\xFF\xFE"), "\xEF\xBF\xBE", 0);
    ExpectDone(ConvertOnce("UTF-32BE", "UTF-8", "\xEF\xBF\xBE"), Bytes("\0\0\xFF\xFE"), 0);
}

TEST(IconvUtf16, AMarkOfTheOtherOrderIsNotWrittenWhereTheMarkTellsTheOrder) {
    ExpectDone(ConvertOnce("UTF-16", "UTF-8", "\xEF\xBF\xBE\x61"), "?\xFE\xFF" + Bytes("\0a"), 1);
}

TEST(IconvUtf16, InvalidInputIsReplacedUnitByUnit) {
    ExpectDone(ConvertOnce("UTF-8", "UTF-16BE", Bytes("\xDC\x00\0a")), "??a", 1);
    ExpectDone(ConvertOnce("UTF-8", "UTF-16BE", Bytes("\xD8\x00\0a")), "??a", 1);
    ExpectIncomplete(ConvertOnce("UTF-8", "UTF-16BE", Bytes("\0a\xD8\x00")));
    ExpectIncomplete(ConvertOnce("UTF-8", "UTF-16BE", Bytes("\0a\0")));
}

TEST(IconvUtf32, IsWrittenBigEndianBehindAMarkAndReadByItsMark) {
    ExpectDone(ConvertOnce("UTF-32", "UTF-8", "a"), Bytes("\0\0\xFE\xFF\0\0\0a"), 0);
    ExpectDone(ConvertOnce("UTF-8", "UTF-32", Bytes("\xFF\xFE\0\0a\0\0\0")), "a", 0);
    ExpectDone(ConvertOnce("UTF-8", "UTF-32", Bytes("\0\x01\xF6\0")), "\xF0\x9F\x98\x80", 0);
    ExpectDone(ConvertOnce("UTF-8", "UTF-32BE", Bytes("\0\x11\0\0\0\0\0a")), "????a", 1);
}

}  // namespace

}  // namespace test
