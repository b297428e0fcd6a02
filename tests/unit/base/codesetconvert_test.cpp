#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <bundlemgr/base.h>
#include <bundlemgr/bundlemgr.h>

#include "support/capture.h"
#include "support/count.h"
#include "support/environment.h"
#include "support/logfiles.h"
#include "support/tempdir.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {

namespace {

// Converted while static objects are made, in whatever order.
std::string ConvertEarly() {
    std::string out;
    CodeSetConvert("ISO-8859-5", "UTF-8", "\xD0", out);
    return out;
}
const std::string g_early = ConvertEarly();

/// The bytes of a literal, NUL bytes included.
template <std::size_t kSize>
std::string Bytes(const char (&literal)[kSize]) {
    return std::string(literal, kSize - 1);
}

/// @return the conversion's result, or "failed, " and what became of the output
std::string Convert(const std::string& from, const std::string& to, const std::string& in) {
    std::string out = "untouched";
    return CodeSetConvert(from, to, in, out) ? out : "failed, " + out;
}

std::string ToUtf8(const std::string& in) {
    std::string out = "untouched";
    return Local2Utf(out, in) ? out : "failed, " + out;
}

std::string ToLocal(const std::string& in) {
    std::string out = "untouched";
    return Utf2Local(out, in) ? out : "failed, " + out;
}

std::string ForLog(const std::string& in) {
    std::string out = "untouched";
    Convert2UTFforLog(in, out);
    return out;
}

/// Runs the same in eight threads that start at once.
template <class Action>
void InEightThreads(Action action) {
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&go, &action, i] {
            test::WaitFor([&go] { return go.load(); });
            action(i);
        });
    }
    go = true;
    for (std::thread& thread : threads) thread.join();
}

// ---- CodeSetConvert ----

TEST(CodeSetConvert, EqualNamesCopy) {
    EXPECT_EQ("\xE9z", Convert("UTF-8", "UTF-8", "\xE9z"));
    EXPECT_EQ(Bytes("a\0b"), Convert("GBK", "GBK", Bytes("a\0b")));
    // Nothing is opened: there is no such set.
    EXPECT_EQ("", test::StdoutOf([] { EXPECT_EQ("x", Convert("nonsense", "nonsense", "x")); }));
    EXPECT_EQ("x", Convert("UNKOWN", "UNKOWN", "x"));
}

TEST(CodeSetConvert, NamesThatDifferInCaseAreConverted) {
    EXPECT_EQ("?", Convert("utf-8", "UTF-8", "\xFF"));
}

TEST(CodeSetConvert, TheUnknownSetChangesNothing) {
    EXPECT_EQ("untouched", Convert("UNKOWN", "UTF-8", "x"));
    EXPECT_EQ("untouched", Convert("UTF-8", "UNKOWN", "x"));
    EXPECT_EQ("untouched", Convert("nonsense", "UNKOWN", "x"));
}

TEST(CodeSetConvert, ConvertsBothWays) {
    EXPECT_EQ("\xE4\xB8\xAD\xE6\x96\x87 ok", Convert("GBK", "UTF-8", "\xD6\xD0\xCE\xC4 ok"));
    EXPECT_EQ("\xD6\xD0\xCE\xC4 ok", Convert("UTF-8", "GBK", "\xE4\xB8\xAD\xE6\x96\x87 ok"));
    EXPECT_EQ("\xC3\xA9", Convert("ISO-8859-1", "UTF-8", "\xE9"));
    EXPECT_EQ("\xE9", Convert("UTF-8", "ISO-8859-1", "\xC3\xA9"));
    EXPECT_EQ("\xD0\xB0", Convert("ISO-8859-5", "UTF-8", "\xD0"));
    EXPECT_EQ("", Convert("GBK", "UTF-8", ""));
}

TEST(CodeSetConvert, TheOutputMayBeTheInput) {
    std::string text = "\xD6\xD0";
    EXPECT_TRUE(CodeSetConvert("GBK", "UTF-8", text, text));
    EXPECT_EQ("\xE4\xB8\xAD", text);
    EXPECT_TRUE(CodeSetConvert("UTF-8", "UTF-8", text, text));
    EXPECT_EQ("\xE4\xB8\xAD", text);
}

TEST(CodeSetConvert, EachByteOfInvalidInputBecomesAMark) {
    EXPECT_EQ("a??z", Convert("GBK", "UTF-8", "a\xFF\xFFz"));
    EXPECT_EQ("?0a", Convert("GBK", "UTF-8", "\x81\x30\x61"));
    EXPECT_EQ("?", Convert("GBK", "UTF-8", "\x80"));
    EXPECT_EQ("a????z", Convert("UTF-8", "GBK", "a\xF4\x90\x80\x80z"));
    EXPECT_EQ("?AB", Convert("UTF-8", "GBK", "\xE4\x41\x42"));
    EXPECT_EQ("a??z", Convert("UTF-16BE", "UTF-8", Bytes("\0a\xDC\0\0z")));
}

TEST(CodeSetConvert, ACharacterThatTheTargetLacksBecomesOneMark) {
    EXPECT_EQ("a?z", Convert("UTF-8", "GBK", "a\xE2\x82\xACz"));
    EXPECT_EQ("a?z", Convert("UTF-8", "ISO-8859-1", "a\xF0\x9F\x98\x80z"));
    EXPECT_EQ("az", Convert("UTF-8", "GBK", "a\xF3\xA0\x81\x81z"));
}

TEST(CodeSetConvert, AnIncompleteEndFails) {
    EXPECT_EQ("failed, untouched", Convert("GBK", "UTF-8", "ab\xD6"));
    EXPECT_EQ("failed, untouched", Convert("GBK", "UTF-8", "\xAA\xA1\xB0\xA1"));
    EXPECT_EQ("failed, untouched", Convert("UTF-8", "GBK", "\xE4\x41"));
}

TEST(CodeSetConvert, FailsWhereTheResultNeedsMoreThanTwiceTheRoom) {
    EXPECT_EQ("failed, untouched", Convert("UTF-8", "UTF-32", "ab"));
    // Eight bytes of room.
    EXPECT_EQ("\xE4\xB8\xAD\xE4\xB8\xAD", Convert("UTF-16BE", "UTF-8", "\x4E\x2D\x4E\x2D"));
    EXPECT_EQ("\xE4\xB8\xAD", Convert("UTF-16BE", "UTF-8", "\x4E\x2D"));
}

TEST(CodeSetConvert, ATextMayFillItsBufferToTheLastByte) {
    EXPECT_EQ("\xFE\xFF\x04\x30\x04\x31", Convert("ISO-8859-5", "UTF-16", "\xD0\xD1"));
}

TEST(CodeSetConvert, HighBytesOfLatin1FitTwice) {
    std::string expected;
    for (int i = 0; i < 100; ++i) expected += "\xC3\xBF";
    EXPECT_EQ(expected, Convert("ISO-8859-1", "UTF-8", std::string(100, '\xFF')));
}

TEST(CodeSetConvert, OutputEndsAtItsFirstNul) {
    EXPECT_EQ("a", Convert("GBK", "UTF-8", Bytes("a\0\xD6\xD0")));
    EXPECT_EQ("", Convert("ISO-8859-1", "UTF-16BE", "a"));
    // What is behind the NUL still counts as input.
    EXPECT_EQ("failed, untouched", Convert("GBK", "UTF-8", Bytes("a\0\xD6")));
}

TEST(CodeSetConvert, TheShiftStateGoesOnFromCallToCall) {
    EXPECT_EQ("\xFE\xFF\x04\x30", Convert("ISO-8859-5", "UTF-16", "\xD0"));
    EXPECT_EQ("\x04\x30", Convert("ISO-8859-5", "UTF-16", "\xD0"));
    EXPECT_EQ("\xFE\xFF\x4E\x2D", Convert("GBK", "UTF-16", "\xD6\xD0"));
    EXPECT_EQ("\x04\x30", Convert("ISO-8859-5", "UTF-16", "\xD0"));
}

TEST(CodeSetConvert, ManyPairsAreKeptApart) {
    const std::vector<std::string> sets = {"GBK",      "UTF-8",  "ISO-8859-1",  "ISO-8859-5", "KOI8-R", "CP1251",
                                           "US-ASCII", "EUC-JP", "ISO-8859-15", "BIG5",       "gbk",    "utf-8"};
    for (int round = 0; round < 2; ++round) {
        for (const std::string& from : sets) {
            for (const std::string& to : sets) EXPECT_EQ("plain", Convert(from, to, "plain")) << from << ' ' << to;
        }
        EXPECT_EQ("\xD0\xB0", Convert("KOI8-R", "UTF-8", "\xC1"));
        EXPECT_EQ("\xD0\xB0", Convert("CP1251", "UTF-8", "\xE0"));
        EXPECT_EQ("\xE0", Convert("KOI8-R", "CP1251", "\xC1"));
    }
}

TEST(CodeSetConvert, WorksInStaticConstructors) {
    EXPECT_EQ("\xD0\xB0", g_early);
}

void ExitConvertingLate() {
    static struct Late {
        ~Late() {
            const bool good = Convert("GBK", "UTF-8", "\xD6\xD0") == "\xE4\xB8\xAD" &&
                              Convert("KOI8-R", "UTF-8", "\xC1") == "\xD0\xB0" && ForLog("\xE9") == "\xC3\xA9";
            _exit(good ? 7 : 1);
        }
    } late;
    std::exit(2);
}

TEST(CodeSetConvert, WorksInStaticDestructors) {
    EXPECT_EXIT(ExitConvertingLate(), testing::ExitedWithCode(7), "");
}

// ---- A set that cannot be opened ----

TEST(CodeSetConvertFailure, IsPrintedTargetFirstOnEveryCall) {
    const test::ScopedLogDir log;
    // Once by itself, once as the log's echo.
    const std::string message = "[CodeSetConvert]:iconv_open(UTF-8,nonsense) failed.\n";
    for (int call = 0; call < 3; ++call) {
        EXPECT_EQ(message + message,
                  test::StdoutOf([] { EXPECT_EQ("failed, untouched", Convert("nonsense", "UTF-8", "x")); }));
    }
    EXPECT_EQ(3u, test::Count(log.Text(), message));
}

TEST(CodeSetConvertFailure, IsLoggedAsAnError) {
    const test::ScopedLogDir log;
    test::StdoutOf([] { Convert("GBK", "no%ssense", "x"); });
    EXPECT_THAT(log.Text(),
                testing::ContainsRegex("Level = 1, Bundle = BundleMgr, Service = Core \n"
                                       "filename = codesetconvert, lineno = [0-9]+\n"
                                       "\\[CodeSetConvert\\]:iconv_open\\(no%ssense,GBK\\) failed\\.\n\n</1>\n"));
}

TEST(CodeSetConvertFailure, ConversionsThatFailAreSilent) {
    const test::ScopedLogDir log;
    EXPECT_EQ("", test::StdoutOf([] {
                  Convert("GBK", "UTF-8", "\xD6");
                  Convert("GBK", "UTF-8", "\xFF");
                  ForLog("\xE9");
              }));
    EXPECT_EQ("", log.Text());
}

TEST(CodeSetConvertFailure, NamesOfOtherThanTheirCharactersAreUnknown) {
    const std::vector<std::string> names = {"",      " ",       "GBK ",     " GBK",  "G BK",    "GB#K",        "GBK//",
                                            "GBK\t", "GBK\xE9", "\xC7GBK",  "GBK,",  "UTF-8/",  "UTF-8//",     "GBK|",
                                            "*",     "GBK\n",   "ISO 8859", "UTF@",  "latin1;", "GBK//IGNORE", "GBK+",
                                            "G(B)K", "()",      "+",        "UTF-8+"};
    const test::ScopedLogDir log;
    for (const std::string& name : names) {
        const std::string toName = "[CodeSetConvert]:iconv_open(" + name + ",UTF-8) failed.\n";
        const std::string fromName = "[CodeSetConvert]:iconv_open(UTF-8," + name + ") failed.\n";
        EXPECT_EQ(fromName + fromName,
                  test::StdoutOf([&] { EXPECT_EQ("failed, untouched", Convert(name, "UTF-8", "x")); }));
        EXPECT_EQ(toName + toName,
                  test::StdoutOf([&] { EXPECT_EQ("failed, untouched", Convert("UTF-8", name, "x")); }));
    }
}

TEST(CodeSetConvertFailure, ANameEndsAtNoNul) {
    const test::ScopedLogDir log;
    test::StdoutOf([] { EXPECT_EQ("failed, untouched", Convert(Bytes("GBK\0"), "UTF-8", "x")); });
}

TEST(CodeSetConvertFailure, AnUnknownNameIsReportedOnEveryCall) {
    const test::ScopedLogDir log;
    test::StdoutOf([] {
        for (int call = 0; call < 3; ++call) EXPECT_EQ("failed, untouched", Convert("GBK ", "UTF-8", "x"));
    });
    EXPECT_EQ(3u, test::Count(log.Text(), "[CodeSetConvert]:iconv_open(UTF-8,GBK ) failed.\n"));
}

TEST(CodeSetConvert, NamesMayHoldPunctuationOfTheirOwn) {
    EXPECT_EQ("\xC3\xA9", Convert("ISO_8859-1:1987", "UTF-8", "\xE9"));
    EXPECT_EQ("a", Convert("ANSI_X3.4-1968", "UTF-8", "a"));
}

TEST(CodeSetConvert, WhatComesBeforeTheNamesAreLookedAtStaysFirst) {
    EXPECT_EQ("x", Convert("GBK ", "GBK ", "x"));
    EXPECT_EQ("x", Convert("", "", "x"));
    EXPECT_EQ("untouched", Convert("UNKOWN", "GBK//", "x"));
    EXPECT_EQ("untouched", Convert(" ", "UNKOWN", "x"));
}

TEST(CodeSetConvertFailure, IsReportedFromSeveralThreadsAtOnce) {
    const test::ScopedLogDir log;
    constexpr int kCalls = 40;
    std::atomic<int> failed{0};
    const std::string printed = test::StdoutOf([&failed] {
        InEightThreads([&failed](int thread) {
            for (int i = 0; i < kCalls; ++i) {
                const bool latin1 = thread % 2 == 0;
                if (Convert(latin1 ? "nonsense" : "GBK", latin1 ? "UTF-8" : "nonsense", "x") == "failed, untouched") {
                    ++failed;
                }
                if (Convert("GBK", "UTF-8", "\xD6\xD0") != "\xE4\xB8\xAD") failed -= 1000;
            }
        });
    });
    EXPECT_EQ(8 * kCalls, failed);
    EXPECT_EQ(2u * 4 * kCalls, test::Count(printed, "[CodeSetConvert]:iconv_open(UTF-8,nonsense) failed.\n"));
    EXPECT_EQ(2u * 4 * kCalls, test::Count(printed, "[CodeSetConvert]:iconv_open(nonsense,GBK) failed.\n"));
    EXPECT_EQ(4u * kCalls, test::Count(log.Text(), "[CodeSetConvert]:iconv_open(UTF-8,nonsense) failed.\n"));
    EXPECT_EQ(4u * kCalls, test::Count(log.Text(), "[CodeSetConvert]:iconv_open(nonsense,GBK) failed.\n"));
}

// ---- The character-set switch ----

class Switch : public testing::Test {
protected:
    Switch() : m_env("_APP_SHARE_DIR", m_dir.Path()) {}

    void Write(const std::string& content) const { m_dir.Write("conf/corba_start.cfg", content); }

    test::TempDir m_dir;
    test::ScopedEnv m_env;
};

TEST_F(Switch, OneIsGbk) {
    Write("CharacterSetSwitch=1\n");
    EXPECT_EQ("\xE4\xB8\xAD", ToUtf8("\xD6\xD0"));
    EXPECT_EQ("\xD6\xD0", ToLocal("\xE4\xB8\xAD"));
    EXPECT_EQ("?", ToLocal("\xE2\x82\xAC"));
    EXPECT_EQ("failed, untouched", ToUtf8("\xD6"));
    EXPECT_EQ("failed, untouched", ToLocal("\xE4"));
}

TEST_F(Switch, TwoIsLatin1) {
    Write("CharacterSetSwitch=2\n");
    EXPECT_EQ("\xC3\xA9", ToUtf8("\xE9"));
    EXPECT_EQ("\xE9", ToLocal("\xC3\xA9"));
    std::string expected;
    for (int i = 0; i < 100; ++i) expected += "\xC2\x80";
    EXPECT_EQ(expected, ToUtf8(std::string(100, '\x80')));
    EXPECT_EQ("failed, untouched", ToLocal("\xC3"));
}

TEST_F(Switch, ZeroCopies) {
    Write("CharacterSetSwitch=0\n");
    EXPECT_EQ(Bytes("\xD6\0\xFF"), ToUtf8(Bytes("\xD6\0\xFF")));
    EXPECT_EQ("\xE9", ToLocal("\xE9"));
}

TEST_F(Switch, BlanksAroundItDoNotCount) {
    Write("CharacterSetSwitch= 1 \n");
    EXPECT_EQ("\xE4\xB8\xAD", ToUtf8("\xD6\xD0"));
}

TEST_F(Switch, ZeroOneIsNotOne) {
    Write("CharacterSetSwitch=01\n");
    EXPECT_EQ("\xD6\xD0", ToUtf8("\xD6\xD0"));
}

TEST_F(Switch, ThreeIsNoConversion) {
    Write("CharacterSetSwitch=3\n");
    EXPECT_EQ("\xE9", ToUtf8("\xE9"));
}

TEST_F(Switch, TheFirstOfItsNameCounts) {
    Write("CharacterSetSwitch=2\nCharacterSetSwitch=1\n");
    EXPECT_EQ("\xC3\xA9", ToUtf8("\xE9"));
}

TEST_F(Switch, AMissingKeyIsNoConversion) {
    Write("characterSetSwitch=1\n");
    EXPECT_EQ("\xE9", ToUtf8("\xE9"));
}

TEST_F(Switch, AMissingFileIsNoConversion) {
    EXPECT_EQ("", test::StdoutOf([] { EXPECT_EQ("\xE9", ToUtf8("\xE9")); }));
}

TEST_F(Switch, AMissingDirectoryIsNoConversion) {
    const test::ScopedEnv unset("_APP_SHARE_DIR");
    EXPECT_EQ("\xE9", ToLocal("\xE9"));
}

TEST_F(Switch, IsReadOnce) {
    Write("CharacterSetSwitch=2\n");
    EXPECT_EQ("\xC3\xA9", ToUtf8("\xE9"));
    Write("CharacterSetSwitch=1\n");
    EXPECT_EQ("\xC3\xA9", ToUtf8("\xE9"));
    EXPECT_EQ("\xE9", ToLocal("\xC3\xA9"));
}

TEST_F(Switch, IsReadByWhicheverDirectionComesFirst) {
    EXPECT_EQ("\xC3\xA9", ToLocal("\xC3\xA9"));
    Write("CharacterSetSwitch=2\n");
    EXPECT_EQ("\xE9", ToUtf8("\xE9"));
}

TEST_F(Switch, HasNothingToDoWithTheLog) {
    Write("CharacterSetSwitch=1\n");
    EXPECT_EQ("\xE4\xB8\xAD", ToUtf8("\xD6\xD0"));
    EXPECT_EQ("\xC3\x96\xC3\x90", ForLog("\xD6\xD0"));
}

TEST_F(Switch, GbkComesBackAsItWas) {
    Write("CharacterSetSwitch=1\n");
    int characters = 0;
    for (int lead = 0x81; lead <= 0xFE; ++lead) {
        for (int trail = 0x40; trail <= 0xFE; ++trail) {
            const std::string gbk = {static_cast<char>(lead), static_cast<char>(trail)};
            const std::string utf8 = ToUtf8(gbk);
            if (utf8 == "failed, untouched" || utf8.front() == '?') continue;
            ASSERT_EQ(gbk, ToLocal(utf8));
            ++characters;
        }
    }
    EXPECT_EQ(21791, characters);
}

TEST_F(Switch, IsTheSameForEightThreadsThatReadItAtOnce) {
    Write("CharacterSetSwitch=1\n");
    std::atomic<int> good{0};
    InEightThreads([&good](int) {
        if (ToUtf8("\xD6\xD0") == "\xE4\xB8\xAD" && ToLocal("\xE4\xB8\xAD") == "\xD6\xD0") ++good;
    });
    EXPECT_EQ(8, good);
}

// ---- Conversion for the log ----

class ForLogRecords : public testing::Test {
protected:
    ForLogRecords() : m_env("_APP_SHARE_DIR", m_dir.Path()) {}
    ~ForLogRecords() override { CorbaConfigItems::Destroy(); }

    void Init(const std::string& start) const {
        m_dir.Write("conf/corba_start.cfg", start);
        CorbaConfigItems::Instance()->init();
    }

    test::ScopedLogDir m_log;
    test::TempDir m_dir;
    test::ScopedEnv m_env;
};

/// Looks at the one object without making it.
class Peek : public CorbaConfigItems {
public:
    static bool IsThere() { return m_pInstance != nullptr; }
};

TEST_F(ForLogRecords, OneIsGbk) {
    Init("LocalCharset=1\n");
    EXPECT_EQ("\xE4\xB8\xAD", ForLog("\xD6\xD0"));
    EXPECT_EQ("?a", ForLog("\x80\x61"));
}

TEST_F(ForLogRecords, AnythingElseIsLatin1) {
    Init("LocalCharset=01\n");
    EXPECT_EQ("\xC3\x96\xC3\x90", ForLog("\xD6\xD0"));
}

TEST_F(ForLogRecords, AMissingItemIsLatin1) {
    Init("CharacterSetSwitch=1\n");
    EXPECT_EQ("\xC3\xA9", ForLog("\xE9"));
}

TEST_F(ForLogRecords, WhatCannotBeConvertedIsCopied) {
    Init("LocalCharset=1\n");
    EXPECT_EQ("a\xD6", ForLog("a\xD6"));
    EXPECT_EQ(Bytes("a\0\xD6"), ForLog(Bytes("a\0\xD6")));
}

TEST_F(ForLogRecords, OutputEndsAtItsFirstNul) {
    EXPECT_EQ("a", ForLog(Bytes("a\0b")));
    EXPECT_EQ("", ForLog(Bytes("\0")));
    EXPECT_EQ("abcdefg", ForLog(Bytes("abcdefg\0ijklmnopq")));
}

TEST_F(ForLogRecords, TheOutputMayBeTheInput) {
    std::string text = "a\xE9";
    Convert2UTFforLog(text, text);
    EXPECT_EQ("a\xC3\xA9", text);
    std::string plain = "plain";
    Convert2UTFforLog(plain, plain);
    EXPECT_EQ("plain", plain);
}

TEST_F(ForLogRecords, AFirstCallBeforeTheItemsAreReadDecidesForGood) {
    EXPECT_EQ("plain", ForLog("plain"));
    Init("LocalCharset=1\n");
    EXPECT_EQ("\xC3\x96\xC3\x90", ForLog("\xD6\xD0"));
}

TEST_F(ForLogRecords, TheSetIsAskedForOnce) {
    Init("LocalCharset=1\n");
    EXPECT_EQ("\xE4\xB8\xAD", ForLog("\xD6\xD0"));
    CorbaConfigItems::Instance()->SetStrItemInfo("LocalCharset", "0");
    EXPECT_EQ("\xE4\xB8\xAD", ForLog("\xD6\xD0"));
}

TEST_F(ForLogRecords, AskingForTheSetCreatesNothing) {
    EXPECT_EQ("\xC3\xA9", ForLog("\xE9"));
    EXPECT_FALSE(Peek::IsThere());
}

TEST_F(ForLogRecords, NeverWaitsForTheStaticObjectLock) {
    Init("LocalCharset=1\n");
    std::atomic<bool> converted{false};
    std::thread converter;
    {
        ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*ACE_Static_Object_Lock::instance());
        converter = std::thread([&converted] { converted = ForLog("\xD6\xD0") == "\xE4\xB8\xAD"; });
        EXPECT_TRUE(test::WaitFor([&converted] { return converted.load(); }));
    }
    converter.join();
}

TEST_F(ForLogRecords, PlainTextIsConvertedAsAnyOther) {
    std::mt19937 random(20240304);
    int plain = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string text(random() % 40, '\0');
        for (char& c : text) c = static_cast<char>(1 + random() % 0x7F);
        for (std::size_t spoilt = random() % 3; spoilt > 0 && !text.empty(); --spoilt) {
            text[random() % text.size()] = "\0\x7F\x80\xFF\x01"[random() % 5];
        }
        const std::string converted = Convert("ISO-8859-1", "UTF-8", text);
        ASSERT_EQ(converted, ForLog(text)) << testing::PrintToString(text);
        if (converted == text) ++plain;
    }
    EXPECT_GT(plain, 5000);
}

TEST_F(ForLogRecords, PlainTextIsConvertedAsAnyOtherFromGbk) {
    Init("LocalCharset=1\n");
    std::mt19937 random(20240305);
    for (int i = 0; i < 20000; ++i) {
        std::string text(random() % 40, '\0');
        for (char& c : text) c = static_cast<char>(1 + random() % 0x7F);
        if (random() % 2 == 0 && !text.empty()) text[random() % text.size()] = "\0\x80\xD6\xFF"[random() % 4];
        const std::string converted = Convert("GBK", "UTF-8", text);
        ASSERT_EQ(converted == "failed, untouched" ? text : converted, ForLog(text)) << testing::PrintToString(text);
    }
}

void ExitConvertingFromGbk() {
    testing::internal::CaptureStdout();
    const std::string converted = ForLog("a\xD6\xD0");
    const bool good = testing::internal::GetCapturedStdout().empty() && converted == "a\xE4\xB8\xAD";
    std::_Exit(good ? 7 : 1);
}

TEST_F(ForLogRecords, GbkNeedsNothingOfTheCLibrary) {
    // Started anew, since the C library reads the variable as the process starts.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    m_dir.Write("gconv-modules", "module GBK// INTERNAL nowhere 1\nmodule INTERNAL GBK// nowhere 1\n");
    const test::ScopedEnv modules("GCONV_PATH", m_dir.Path());
    Init("LocalCharset=1\n");
    EXPECT_EXIT(ExitConvertingFromGbk(), testing::ExitedWithCode(7), "");
}

/// Makes a time zone file whose zone has any name, at eight hours east of Greenwich.
std::string ZoneFile(const test::TempDir& dir, const std::string& name) {
    const std::string header = "TZif" + std::string(16, '\0');
    const auto number = [](std::uint32_t value) {
        return std::string{static_cast<char>(value >> 24), static_cast<char>(value >> 16),
                           static_cast<char>(value >> 8), static_cast<char>(value)};
    };
    const std::string counts =
        number(0) + number(0) + number(0) + number(0) + number(1) + number(static_cast<std::uint32_t>(name.size() + 1));
    return dir.Write("zone", header + counts + number(8 * 3600) + std::string(2, '\0') + name + '\0');
}

TEST_F(ForLogRecords, ATimeStampWithAForeignZoneIsConverted) {
    Init("LocalCharset=1\n");
    const test::ScopedEnv zone("TZ", ":" + ZoneFile(m_dir, "\xD6\xD0\xB9\xFA"));
    tzset();
    EXPECT_EQ("\xE4\xB8\xAD\xE5\x9B\xBD 1970-01-01 08:00:01.000042", GetZoneTimeStamp(ACE_Time_Value(1, 42)));
}

TEST_F(ForLogRecords, TheFirstConversionMayBeInsideALogWrite) {
    Init("LocalCharset=1\n");
    const test::ScopedEnv zone("TZ", ":" + ZoneFile(m_dir, "\xD6\xD0\xB9\xFA"));
    tzset();
    LogProxy* const log = BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("Foreign");
    test::StdoutOf([log] {
        InEightThreads([log](int) {
            for (int i = 0; i < 20; ++i) log->Printf(LOG_LEVEL_INFO, "record");
        });
    });
    EXPECT_EQ(160u, test::Count(m_log.Text(), "\n\xE4\xB8\xAD\xE5\x9B\xBD "));
    EXPECT_EQ(160u, test::Count(m_log.Text(), "\nrecord\n"));
}

TEST_F(ForLogRecords, EightThreadsMayAskForTheSetAtOnce) {
    Init("LocalCharset=1\n");
    std::atomic<int> good{0};
    InEightThreads([&good](int) {
        if (ForLog("\xD6\xD0") == "\xE4\xB8\xAD") ++good;
    });
    EXPECT_EQ(8, good);
}

// ---- Threads ----

std::string RandomText(std::mt19937& random, std::size_t length) {
    std::string text(length, 'z');
    for (char& c : text) c = static_cast<char>(1 + random() % 0xFF);
    return text;
}

/// Converts the same texts in one thread, then in eight at once.
void ExpectSameBytesInEightThreads(const std::string& from, const std::string& to) {
    std::mt19937 random(20240306);
    std::vector<std::string> texts;
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < 200; ++i) {
        texts.push_back(RandomText(random, i) + "z");
        expected.push_back(Convert(from, to, texts.back()));
    }
    std::atomic<int> different{0};
    InEightThreads([&](int thread) {
        for (std::size_t i = 0; i < 5 * texts.size(); ++i) {
            const std::size_t at = (i + static_cast<std::size_t>(thread) * 25) % texts.size();
            if (Convert(from, to, texts[at]) != expected[at]) ++different;
        }
    });
    EXPECT_EQ(0, different) << from << " to " << to;
}

TEST(CodeSetThreads, GetTheSameBytesFromGbk) {
    ExpectSameBytesInEightThreads("GBK", "UTF-8");
}

TEST(CodeSetThreads, GetTheSameBytesToGbk) {
    ExpectSameBytesInEightThreads("UTF-8", "GBK");
}

TEST(CodeSetThreads, GetTheSameBytesWithLatin1) {
    ExpectSameBytesInEightThreads("ISO-8859-1", "UTF-8");
    ExpectSameBytesInEightThreads("UTF-8", "ISO-8859-1");
}

TEST(CodeSetThreads, GetTheSameBytesWithOtherSets) {
    ExpectSameBytesInEightThreads("ISO-8859-5", "UTF-8");
    ExpectSameBytesInEightThreads("UTF-8", "KOI8-R");
    ExpectSameBytesInEightThreads("EUC-JP", "GBK");
    ExpectSameBytesInEightThreads("BIG5", "UTF-8");
}

TEST(CodeSetThreads, MayOpenManyPairsAtOnce) {
    const std::vector<std::string> sets = {"ISO-8859-2", "ISO-8859-5", "KOI8-R", "CP1251", "EUC-JP", "BIG5", "GBK"};
    std::atomic<int> wrong{0};
    InEightThreads([&](int) {
        for (const std::string& set : sets) {
            if (Convert(set, "UTF-8", "plain") != "plain" || Convert("UTF-8", set, "plain") != "plain") ++wrong;
        }
    });
    EXPECT_EQ(0, wrong);
}

TEST(CodeSetThreads, ShareAHandleWithStateOneAfterTheOther) {
    // Nobody else has one in use, so each thread goes on where the last one stopped.
    EXPECT_EQ("\xFE\xFF\x04\x30", Convert("ISO-8859-5", "UTF-16", "\xD0"));
    for (int i = 0; i < 100; ++i) {
        std::thread([] { EXPECT_EQ("\x04\x30", Convert("ISO-8859-5", "UTF-16", "\xD0")); }).join();
    }
    EXPECT_EQ("\x04\x30", Convert("ISO-8859-5", "UTF-16", "\xD0"));
}

TEST(CodeSetThreads, MoreThanThereAreHandlesAreServed) {
    std::mt19937 random(20240307);
    const std::string text = RandomText(random, 2000);
    const std::string expected = Convert("EUC-JP", "UTF-8", text + "z");
    std::atomic<int> different{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 100; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 3; ++n) {
                if (Convert("EUC-JP", "UTF-8", text + "z") != expected) ++different;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, different);
}

TEST(CodeSetThreads, NeverShareAHandleWithStateAtOnce) {
    // Each handle marks its byte order once: so many marks, so many handles. As many as there are
    // slots may have been overlooked while they moved.
    std::atomic<int> marked{0};
    std::atomic<int> wrong{0};
    InEightThreads([&](int) {
        for (int i = 0; i < 500; ++i) {
            const std::string out = Convert("ISO-8859-5", "UTF-16", "\xD0\xD1");
            if (out == "\xFE\xFF\x04\x30\x04\x31") {
                ++marked;
            } else if (out != "\x04\x30\x04\x31") {
                ++wrong;
            }
        }
    });
    EXPECT_EQ(0, wrong);
    EXPECT_LE(marked, 2 * 8);
}

TEST(CodeSetThreads, OpenNoMoreHandlesTheLongerTheyConvert) {
    // Threads that come and go, each time others: so many marks, so many handles.
    std::atomic<int> marked{0};
    for (int round = 0; round < 200; ++round) {
        InEightThreads([&](int) {
            for (int i = 0; i < 20; ++i) {
                if (Convert("KOI8-R", "UTF-16", "\xC1") != "\x04\x30") ++marked;
            }
        });
    }
    EXPECT_GE(marked, 1);
    EXPECT_LE(marked, 2 * 8);
}

}  // namespace

}  // namespace NS_BUNDLEMGR1
