// The calls, whatever the sets: replacements, room, names, threads.
#include "unit/platform/iconvtest.h"

#include <atomic>
#include <thread>
#include <vector>

#include "support/forkedchild.h"
#include "support/wait.h"

namespace test {

namespace {

// ---- Any text ----

TEST(Iconv, EmptyTextIsConvertedToNothing) {
    ExpectDone(ConvertOnce("UTF-8", "GBK", ""), "", 0);
    ExpectDone(ConvertOnce("UTF-16", "UTF-8", ""), "", 0);
}

TEST(Iconv, ANulIsACharacterLikeAnyOther) {
    ExpectDone(ConvertOnce("UTF-8", "GBK", Bytes("a\0\xD6\xD0")), Bytes("a\0\xE4\xB8\xAD"), 0);
}

// ---- What the target lacks ----

TEST(Iconv, ACharacterThatTheTargetLacksGivesOneMark) {
    ExpectDone(ConvertOnce("GBK", "UTF-8", "a\xE2\x82\xAC z"), "a? z", 1);  // U+20AC
    ExpectDone(ConvertOnce("GBK", "UTF-8", "\xF0\x9F\x98\x80"), "?", 1);
    ExpectDone(ConvertOnce("ISO-8859-1", "UTF-8", "\xC4\x80\xC3\xBF"), "?\xFF", 1);
    ExpectDone(ConvertOnce("ISO-8859-1", "GBK", "\xD6\xD0\x61"), "?a", 1);
    ExpectDone(ConvertOnce("GBK", "ISO-8859-1", "\xE9\xB7"), "\xA8\xA6\xA1\xA4", 0);
    ExpectDone(ConvertOnce("GBK", "ISO-8859-1", "\xE4"), "?", 1);
}

TEST(Iconv, LanguageTagsVanish) {
    ExpectDone(ConvertOnce("GBK", "UTF-8", "a\xF3\xA0\x80\x80\xF3\xA0\x81\xBF z"), "a z", 0);
    ExpectDone(ConvertOnce("ISO-8859-5", "UTF-8", "a\xF3\xA0\x80\x81z"), "az", 0);
    ExpectDone(ConvertOnce("GBK", "UTF-8", "\xF3\x9F\xBF\xBF\xF3\xA0\x82\x80"), "??", 2);  // the neighbours
    ExpectDone(ConvertOnce("UTF-16BE", "UTF-8", "\xF3\xA0\x80\x81"), Bytes("\xDB\x40\xDC\x01"), 0);
}

TEST(Iconv, TheResultIsTheNumberOfReplacements) {
    // Two invalid bytes, two characters without representation, a tag.
    ExpectDone(ConvertOnce("GBK", "UTF-8", "\xFF\xE2\x82\xAC-\xF3\xA0\x80\x81\xF0\x9F\x98\x80\xC0"),
               "??"
               "-??",
               4);
}

// ---- Fallbacks ----

TEST(IconvFallbacks, AreCalledWithTheBytesAndTheData) {
    std::vector<std::string> seen;
    const Handle handle("UTF-8", "GBK");
    handle.Install({[](const char* bytes, std::size_t count, void (*)(const unsigned int*, std::size_t, void*), void*,
                       void* data) { static_cast<std::vector<std::string>*>(data)->emplace_back(bytes, count); },
                    MarkCharacter, nullptr, nullptr, &seen});
    ExpectDone(handle.Convert("a\xFF\x81\x30"), "a0", 2);
    EXPECT_EQ((std::vector<std::string>{"\xFF", "\x81"}), seen);
}

TEST(IconvFallbacks, AreCalledWithTheCodePoint) {
    std::vector<unsigned> seen;
    const Handle handle("GBK", "UTF-8");
    handle.Install({MarkEachByte,
                    [](unsigned codePoint, void (*)(const char*, std::size_t, void*), void*, void* data) {
                        static_cast<std::vector<unsigned>*>(data)->push_back(codePoint);
                    },
                    nullptr, nullptr, &seen});
    ExpectDone(handle.Convert("a\xE2\x82\xAC\xF0\x9F\x98\x80z"), "az", 2);
    EXPECT_EQ((std::vector<unsigned>{0x20AC, 0x1F600}), seen);
}

TEST(IconvFallbacks, AreNotCalledForAnIncompleteCharacter) {
    int calls = 0;
    const Handle handle("UTF-8", "GBK");
    handle.Install({[](const char*, std::size_t, void (*)(const unsigned int*, std::size_t, void*), void*, void* data) {
                        ++*static_cast<int*>(data);
                    },
                    MarkCharacter, nullptr, nullptr, &calls});
    ExpectIncomplete(handle.Convert("a\xD6"));
    EXPECT_EQ(0, calls);
}

TEST(IconvFallbacks, ReplacementsOfInputAreEncoded) {
    const Handle handle("GBK", "UTF-8");
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
    const Handle handle("GBK", "UTF-8");
    handle.Install({MarkEachByte,
                    [](unsigned, void (*write)(const char*, std::size_t, void*), void* arg, void*) {
                        write("<\xFF", 2, arg);
                        write(">", 1, arg);
                    },
                    nullptr, nullptr, nullptr});
    ExpectDone(handle.Convert("\xE2\x82\xAC"), "<\xFF>", 1);
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
    const Handle decoding("UTF-8", "GBK");
    EXPECT_EQ(E2BIG, decoding.Convert("ab\xFF", 2).error);
    const Handle encoding("GBK", "UTF-8");
    EXPECT_EQ(E2BIG, encoding.Convert("ab\xE2\x82\xAC", 2).error);
    encoding.Install({MarkEachByte,
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

// ---- Other sets ----

TEST(IconvOtherSets, ConvertBothWays) {
    ExpectDone(ConvertOnce("UTF-8", "ISO-8859-5", "\xD0z"), "\xD0\xB0z", 0);
    ExpectDone(ConvertOnce("ISO-8859-5", "UTF-8", "\xD0\xB0z\xE4\xB8\xAD"), "\xD0z?", 1);
    ExpectDone(ConvertOnce("GBK", "KOI8-R", "\xC1"), "\xA7\xD1", 0);
    ExpectDone(ConvertOnce("KOI8-R", "ISO-8859-5", "\xD0"), "\xC1", 0);
    ExpectDone(ConvertOnce("UTF-8", "EUC-JP", "\xB0\xA1"), "\xE4\xBA\x9C", 0);
}

TEST(IconvOtherSets, TreatBadInputAlike) {
    ExpectDone(ConvertOnce("UTF-8", "US-ASCII", "a\x80\xFFz"), "a??z", 2);
    ExpectDone(ConvertOnce("UTF-8", "EUC-JP", "\xFF\xB0\xA1\xB0\x41"), "?\xE4\xBA\x9C?A", 2);
    ExpectIncomplete(ConvertOnce("UTF-8", "EUC-JP", "a\xB0"));
    ExpectDone(ConvertOnce("US-ASCII", "UTF-8", "\xC3\xA9z"), "?z", 1);
    EXPECT_EQ(E2BIG, Handle("UTF-8", "ISO-8859-5").Convert("\xD0", 1).error);
    EXPECT_EQ(E2BIG, Handle("EUC-JP", "UTF-8").Convert("\xE4\xBA\x9C", 1).error);
}

TEST(IconvOtherSets, KeepTheirShiftStateFromCallToCall) {
    const Handle handle("ISO-2022-JP", "UTF-8");
    ExpectDone(handle.Convert("\xE4\xBA\x9C"), "\x1B$B0!", 0);
    ExpectDone(handle.Convert("\xE4\xBA\x9C"), "0!", 0);
    ExpectDone(handle.Convert("a"), "\x1B(Ba", 0);
}

TEST(IconvOtherSets, Cp936HasTheEuroSignThatGbkLacks) {
    ExpectDone(ConvertOnce("UTF-8", "CP936", "\x80\xD6\xD0"), "\xE2\x82\xAC\xE4\xB8\xAD", 0);
    ExpectDone(ConvertOnce("CP936", "UTF-8", "\xE2\x82\xAC"), "\x80", 0);
}

// ---- Names ----

TEST(IconvNames, AreComparedWithoutRegardToCase) {
    ExpectDone(ConvertOnce("utf-8", "gbk", "\xD6\xD0\x80"), "\xE4\xB8\xAD?", 1);
    ExpectDone(ConvertOnce("Utf-8", "Iso-8859-1", "\xE9"), "\xC3\xA9", 0);
    ExpectDone(ConvertOnce("utf-16", "UTF-8", "a"), Bytes("\xFE\xFF\0a"), 0);
}

TEST(IconvNames, AliasesWork) {
    for (const char* alias : {"ISO_8859-1", "ISO_8859-1:1987", "ISO-IR-100", "CP819", "IBM819", "LATIN1", "L1",
                              "csISOLatin1", "iso8859-1", "latin1"}) {
        ExpectDone(ConvertOnce("UTF-8", alias, "\xE9"), "\xC3\xA9", 0);
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

// ---- Threads ----

TEST(IconvThreads, EightThreadsMayOpenAtOnce) {
    std::atomic<bool> go{false};
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            WaitFor([&] { return go.load(); });
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
    if (!kForkedChildMayAllocate) GTEST_SKIP() << "a forked child may not allocate here";
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&stop] {
            while (!stop) Handle("CP1251", "KOI8-R");
        });
    }
    int status = 0;
    for (int i = 0; i < 200 && status == 0; ++i) {
        status = InForkedChild(OpensAnotherSet);
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(0, status);
}

}  // namespace

}  // namespace test
