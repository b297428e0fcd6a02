#include "src/log/logproxyimpl.h"

#include <climits>
#include <memory>
#include <thread>
#include <utility>

#include <gmock/gmock.h>

#include "logtest.h"
#include "support/capture.h"
#include "support/testclock.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::LogRecord;
using test::PrintAt;
using test::StdoutOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class LogProxyImplTest : public test::LogTest {
protected:
    LogProxyImplTest() { test::Clock::Set(test::kTheSecond, 42); }
    ~LogProxyImplTest() override { test::Clock::Reset(); }

    /// What Write and its like leave in the file, the echo aside.
    template <class Action>
    std::string LogOf(Action action) {
        StdoutOf([&] { action(m_proxy); });
        return Log();
    }

    static LogRecord Expected(unsigned long sequence, int level, const std::string& text) {
        LogRecord record;
        record.sequence = sequence;
        record.level = level;
        record.text = text;
        return record;
    }

    LogProxyImpl m_impl{"thename"};
    LogProxy& m_proxy = m_impl;
};

// ---- Records ----

TEST_F(LogProxyImplTest, WritesOneRecord) {
    const std::string log = LogOf([](LogProxy& proxy) {
        proxy.SetBundleName("zo_base_bundle");
        proxy.SetServiceName("AlarmSvc");
        proxy.SetPosition("alarmsvc", 4711);
        proxy.Write(2, "the text");
    });
    const std::string expected =
        "<1>\n"
        "UTC 2024-01-31 23:59:59.000042, " +
        test::ThisThread() +
        ", Level = 2, Bundle = zo_base_bundle, Service = AlarmSvc \n"
        "filename = alarmsvc, lineno = 4711\n"
        "the text\n"
        "</1>\n"
        "\n";
    EXPECT_EQ(expected, log);
    EXPECT_THAT(Files(), ElementsAre(FileOf(test::kTheFileTime)));
}

TEST_F(LogProxyImplTest, StartsWithoutNamesAndAtLineZero) {
    const std::string log = LogOf([](LogProxy& proxy) { proxy.Write(3, "t"); });
    EXPECT_EQ("<1>\nUTC 2024-01-31 23:59:59.000042, " + test::ThisThread() +
                  ", Level = 3, Bundle = , Service =  \nfilename = , lineno = 0\nt\n</1>\n\n",
              log);
}

TEST_F(LogProxyImplTest, NumbersRecordsOfAllProxies) {
    LogProxyImpl other("other");
    const std::string log = LogOf([&](LogProxy& proxy) {
        proxy.Write(1, "a");
        other.Write(2, "b");
        proxy.Write(3, "c");
    });
    EXPECT_EQ(Expected(1, 1, "a").Bytes() + Expected(2, 2, "b").Bytes() + Expected(3, 3, "c").Bytes(), log);
}

TEST_F(LogProxyImplTest, LevelsOutOfRangeBecomeThree) {
    const std::string log = LogOf([](LogProxy& proxy) {
        for (const int level : {0, 1, 2, 3, 4, 7, 9, INT_MAX, -1, INT_MIN}) proxy.Write(level, "t");
    });
    std::string expected;
    unsigned long sequence = 0;
    for (const int level : {0, 1, 2, 3, 3, 3, 3, 3, 3, 3}) expected += Expected(++sequence, level, "t").Bytes();
    EXPECT_EQ(expected, log);
}

TEST_F(LogProxyImplTest, ANullTextIsEmpty) {
    EXPECT_EQ(Expected(1, 1, "").Bytes() + Expected(2, 0, "").Bytes(), LogOf([](LogProxy& proxy) {
                  proxy.Write(1, nullptr);
                  proxy.WriteText(nullptr);
              }));
}

TEST_F(LogProxyImplTest, WriteTakesTextsOfAnyLengthAndContent) {
    const std::string huge(200000, 'x');
    const std::string odd = "100%s\n</1>\n\xE9\t\x01";
    const std::string log = LogOf([&](LogProxy& proxy) {
        proxy.Write(1, huge.c_str());
        proxy.Write(1, odd.c_str());
    });
    EXPECT_EQ(Expected(1, 1, huge).Bytes() + Expected(2, 1, odd).Bytes(), log);
}

TEST_F(LogProxyImplTest, WriteTextIsCritical) {
    EXPECT_EQ(Expected(1, 0, "%d").Bytes(), LogOf([](LogProxy& proxy) { proxy.WriteText("%d"); }));
}

TEST_F(LogProxyImplTest, ABrokenClockGivesOneSecondBeforeTheEpoch) {
    test::Clock::Break();
    LogRecord expected = Expected(1, 1, "t");
    expected.stamp = "UTC 1969-12-31 23:59:59.000000";
    EXPECT_EQ(expected.Bytes(), LogOf([](LogProxy& proxy) { proxy.Write(1, "t"); }));
}

TEST_F(LogProxyImplTest, StampsLocalTimeOfTheCall) {
    const test::ScopedZone zone("CST-8");
    const std::string log = LogOf([](LogProxy& proxy) {
        proxy.SetDebugOutputMode(LOG_OUTPUT_BUFFERED);
        proxy.Write(1, "first");
        test::Clock::Set(test::kTheSecond + 1, 999999);
        proxy.Write(1, "second");
        test::Clock::Set(test::kTheSecond + 500, 7);
        proxy.FlushDebugInfo();
    });
    LogRecord first = Expected(1, 1, "first");
    first.stamp = "CST 2024-02-01 07:59:59.000042";
    LogRecord second = Expected(2, 1, "second");
    second.stamp = "CST 2024-02-01 08:00:00.999999";
    EXPECT_EQ(first.Bytes() + second.Bytes(), log);
    EXPECT_THAT(Files(), ElementsAre(FileOf("20240201_080819")));
}

TEST_F(LogProxyImplTest, NamesTheThreadThatLogs) {
    std::string thread;
    const std::string log = LogOf([&](LogProxy& proxy) {
        std::thread([&] {
            thread = test::ThisThread();
            proxy.Write(1, "t");
        }).join();
    });
    LogRecord expected = Expected(1, 1, "t");
    expected.thread = thread;
    EXPECT_NE(test::ThisThread(), thread);
    EXPECT_EQ(expected.Bytes(), log);
}

TEST_F(LogProxyImplTest, EchoesTheTextOnly) {
    EXPECT_EQ("100%s\ntext4095", StdoutOf([&] {
                  m_proxy.Write(1, "100%s\n");
                  m_proxy.DisableLevel(2);
                  m_proxy.Write(2, "text");  // also where the record is diverted
                  m_proxy.SetDebugOutputMode(LOG_OUTPUT_BUFFERED);
                  m_proxy.Printf(9, "%d", 4095);
                  m_proxy.WriteText(nullptr);
              }));
}

// ---- Names and position ----

TEST_F(LogProxyImplTest, HasItsName) {
    EXPECT_EQ("thename", m_proxy.GetName());
    m_proxy.SetBundleName("bundle");
    m_proxy.SetServiceName("service");
    EXPECT_EQ("thename", m_proxy.GetName());
}

TEST_F(LogProxyImplTest, NamesAndPositionStayUntilReplaced) {
    const std::string longName(300, 'n');
    LogRecord first = Expected(1, 1, "a");
    first.bundle = "bundle";
    first.service = "service";
    first.file = "file";
    first.line = ULONG_MAX;
    LogRecord second = first;
    second.sequence = 2;
    second.text = "b";
    LogRecord third = Expected(3, 1, "c");
    third.bundle = longName;
    third.service = "service";
    third.file = "other";
    third.line = 1;
    EXPECT_EQ(first.Bytes() + second.Bytes() + third.Bytes(), LogOf([&](LogProxy& proxy) {
                  proxy.SetBundleName("bundle");
                  proxy.SetServiceName("service");
                  proxy.SetPosition("file", ULONG_MAX);
                  proxy.Write(1, "a");
                  proxy.Write(1, "b");
                  proxy.SetBundleName(longName.c_str());
                  proxy.SetPosition("other", 1);
                  proxy.Write(1, "c");
              }));
}

TEST_F(LogProxyImplTest, NullNamesAreEmpty) {
    EXPECT_EQ(Expected(1, 1, "t").Bytes(), LogOf([](LogProxy& proxy) {
                  proxy.SetBundleName("bundle");
                  proxy.SetServiceName("service");
                  proxy.SetPosition("file", 5);
                  proxy.SetBundleName(nullptr);
                  proxy.SetServiceName(nullptr);
                  proxy.SetPosition(nullptr, 0);
                  proxy.Write(1, "t");
              }));
}

// ---- Formatting ----

TEST_F(LogProxyImplTest, PrintfFormats) {
    const std::string expected =
        Expected(1, 1, "5 of a%").Bytes() + Expected(2, 3, "plain").Bytes() + Expected(3, 0, "1.50|0000002a|x").Bytes();
    EXPECT_EQ(expected, LogOf([](LogProxy& proxy) {
                  proxy.Printf(1, "%d of %s%%", 5, "a");
                  proxy.Printf(-1, "plain");
                  proxy.PrintfText("%.2f|%08x|%c", 1.5, 42U, 'x');
              }));
}

TEST_F(LogProxyImplTest, PrintfCutsAt4095Bytes) {
    const std::string longest(4095, 'x');
    const std::string expected = Expected(1, 1, longest).Bytes() + Expected(2, 1, longest).Bytes() +
                                 Expected(3, 1, longest).Bytes() + Expected(4, 0, longest).Bytes();
    // No record says that formatting failed.
    EXPECT_EQ(expected, LogOf([&](LogProxy& proxy) {
                  proxy.Printf(1, "%s", std::string(5000, 'x').c_str());
                  proxy.Printf(1, "%s", std::string(4096, 'x').c_str());
                  proxy.Printf(1, "%s", longest.c_str());
                  proxy.PrintfText("%s", std::string(5000, 'x').c_str());
              }));
}

TEST_F(LogProxyImplTest, AFormatThatFailsIsReportedAndRecorded) {
    const wchar_t noCharacter[] = {static_cast<wchar_t>(0xD800), 0};
    const std::string expected = Expected(1, 1, "vsnprintf_s failed.").Bytes() + Expected(2, 2, "before ").Bytes() +
                                 Expected(3, 1, "vsnprintf_s failed.").Bytes() + Expected(4, 0, "").Bytes();
    EXPECT_EQ(expected, LogOf([&](LogProxy& proxy) {
                  proxy.Printf(2, "before %ls after", noCharacter);
                  proxy.PrintfText("%ls", noCharacter);
              }));
}

TEST_F(LogProxyImplTest, ANullFormatFails) {
    const char* const null = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    EXPECT_EQ(Expected(1, 1, "vsnprintf_s failed.").Bytes() + Expected(2, 2, "").Bytes() +
                  Expected(3, 1, "vsnprintf_s failed.").Bytes() + Expected(4, 0, "").Bytes(),
              LogOf([&](LogProxy& proxy) {
                  proxy.Printf(2, null);
                  proxy.PrintfText(null);
              }));
#pragma GCC diagnostic pop
}

// A proxy that catches its records.
class CatchingProxy : public LogProxyImpl {
public:
    CatchingProxy() : LogProxyImpl("catching") {}
    void Write(int level, const char* text) override { m_caught.emplace_back(level, text); }

    std::vector<std::pair<int, std::string>> m_caught;
};

TEST_F(LogProxyImplTest, ADerivedWriteCatchesEveryRecord) {
    const wchar_t noCharacter[] = {static_cast<wchar_t>(0xD800), 0};
    CatchingProxy proxy;
    proxy.WriteText("text");
    proxy.Printf(9, "%d", 1);
    proxy.PrintfText("%d", 2);
    proxy.Printf(2, "%ls", noCharacter);
    EXPECT_THAT(proxy.m_caught,
                ElementsAre(Pair(0, "text"), Pair(9, "1"), Pair(0, "2"), Pair(1, "vsnprintf_s failed."), Pair(2, "")));
    EXPECT_THAT(Files(), IsEmpty());
}

class CatchingTextProxy : public LogProxyImpl {
public:
    CatchingTextProxy() : LogProxyImpl("catching") {}
    void WriteText(const char* text) override { m_caught = text; }

    std::string m_caught;
};

TEST_F(LogProxyImplTest, ADerivedWriteTextCatchesPrintfText) {
    CatchingTextProxy proxy;
    proxy.PrintfText("%d", 2);
    EXPECT_EQ("2", proxy.m_caught);
}

// ---- VPrintfAt ----

TEST_F(LogProxyImplTest, VPrintfAtGivesItsRecordItsPositionAndLeavesThatOfTheProxy) {
    LogRecord first = Expected(1, 2, "5% of all");
    first.file = "source";
    first.line = 12;
    LogRecord second = Expected(2, 1, "t");
    second.file = "stored";
    second.line = 7;
    EXPECT_EQ(first.Bytes() + second.Bytes(), LogOf([](LogProxy& proxy) {
                  proxy.SetPosition("stored", 7);
                  PrintAt(proxy, "source", 12, 2, "%d%% of %s", 5, "all");
                  proxy.Write(1, "t");
              }));
}

TEST_F(LogProxyImplTest, VPrintfAtTakesItsLevelAndItsFileAsPrintfAndSetPositionDo) {
    LogRecord expected = Expected(1, 3, std::string(4095, 'x'));
    expected.line = 12;
    EXPECT_EQ(expected.Bytes(),
              LogOf([](LogProxy& proxy) { PrintAt(proxy, nullptr, 12, 9, "%s", std::string(5000, 'x').c_str()); }));
}

TEST_F(LogProxyImplTest, AFormatThatFailsInVPrintfAtIsReportedAtTheSamePosition) {
    LogRecord report = Expected(1, 1, "vsnprintf_s failed.");
    LogRecord rest = Expected(2, 2, "");
    for (LogRecord* const record : {&report, &rest}) {
        record->file = "source";
        record->line = 12;
    }
    const wchar_t noCharacter[] = {static_cast<wchar_t>(0xD800), 0};
    EXPECT_EQ(report.Bytes() + rest.Bytes(),
              LogOf([&](LogProxy& proxy) { PrintAt(proxy, "source", 12, 2, "%ls", noCharacter); }));
}

TEST_F(LogProxyImplTest, ThreadsThatShareAProxyKeepPositionAndTextTogether) {
    constexpr unsigned long kRecords = 500;
    const std::string log = LogOf([](LogProxy& proxy) {
        const auto print = [&proxy](const char* file, unsigned long from) {
            for (unsigned long line = from; line < from + kRecords; ++line) PrintAt(proxy, file, line, 1, "%s", file);
        };
        std::thread other(print, "one", 1000);
        print("two", 5000);
        other.join();
    });
    const std::vector<LogRecord> records = test::ParseLog(log);
    ASSERT_EQ(2 * kRecords, records.size());
    for (const LogRecord& record : records) {
        EXPECT_EQ(record.file, record.text);
        EXPECT_EQ(record.text == "one", record.line < 5000);
    }
}

// ---- Levels ----

TEST_F(LogProxyImplTest, StartsWithAllLevelsEnabled) {
    for (const int level : {0, 1, 2, 3}) EXPECT_TRUE(m_proxy.IsLevelEnabled(level)) << level;
}

TEST_F(LogProxyImplTest, OtherLevelsAreRefused) {
    for (const int level : {4, 5, 9, 31, 32, 63, 64, 67, INT_MAX, -1, -64, INT_MIN}) {
        EXPECT_FALSE(m_proxy.IsLevelEnabled(level)) << level;
        EXPECT_FALSE(m_proxy.DisableLevel(level)) << level;
        EXPECT_FALSE(m_proxy.EnableLevel(level)) << level;
        EXPECT_FALSE(m_proxy.IsLevelEnabled(level)) << level;
    }
    for (const int level : {0, 1, 2, 3}) EXPECT_TRUE(m_proxy.IsLevelEnabled(level)) << level;
}

TEST_F(LogProxyImplTest, LevelsAreSwitchedOneByOne) {
    EXPECT_TRUE(m_proxy.DisableLevel(0));
    EXPECT_TRUE(m_proxy.DisableLevel(2));
    EXPECT_TRUE(m_proxy.DisableLevel(2));
    EXPECT_FALSE(m_proxy.IsLevelEnabled(0));
    EXPECT_TRUE(m_proxy.IsLevelEnabled(1));
    EXPECT_FALSE(m_proxy.IsLevelEnabled(2));
    EXPECT_TRUE(m_proxy.IsLevelEnabled(3));
    EXPECT_TRUE(m_proxy.EnableLevel(2));
    EXPECT_TRUE(m_proxy.EnableLevel(2));
    EXPECT_TRUE(m_proxy.IsLevelEnabled(2));
    EXPECT_FALSE(m_proxy.IsLevelEnabled(0));
}

TEST_F(LogProxyImplTest, LevelsAreSwitchedAllAtOnce) {
    EXPECT_TRUE(m_proxy.DisableAllLevels());
    for (const int level : {0, 1, 2, 3}) EXPECT_FALSE(m_proxy.IsLevelEnabled(level)) << level;
    EXPECT_TRUE(m_proxy.EnableLevel(1));
    EXPECT_TRUE(m_proxy.IsLevelEnabled(1));
    EXPECT_TRUE(m_proxy.EnableAllLevels());
    for (const int level : {0, 1, 2, 3}) EXPECT_TRUE(m_proxy.IsLevelEnabled(level)) << level;
}

TEST_F(LogProxyImplTest, LevelsBelongToOneProxy) {
    LogProxyImpl other("other");
    m_proxy.DisableAllLevels();
    EXPECT_TRUE(other.IsLevelEnabled(3));
}

TEST_F(LogProxyImplTest, ADisabledLevelIsDivertedAndComesWithTheNextCriticalRecord) {
    const std::string log = LogOf([](LogProxy& proxy) {
        proxy.DisableLevel(3);
        proxy.Write(3, "first");
        proxy.Write(9, "second");  // level 3 as well
        proxy.SetDebugOutputMode(LOG_OUTPUT_BUFFERED);
        test::Clock::Set(test::kTheSecond, 43);
        proxy.Write(0, "third");
    });
    LogRecord third = Expected(3, 0, "third");
    third.stamp = "UTC 2024-01-31 23:59:59.000043";
    EXPECT_EQ(Expected(1, 3, "first").Bytes() + Expected(2, 3, "second").Bytes() + third.Bytes(), log);
}

TEST_F(LogProxyImplTest, AReportedFormatFailureFollowsTheLevelsToo) {
    const wchar_t noCharacter[] = {static_cast<wchar_t>(0xD800), 0};
    EXPECT_EQ(Expected(1, 2, "").Bytes(), LogOf([&](LogProxy& proxy) {
                  proxy.DisableLevel(1);
                  proxy.Printf(2, "%ls", noCharacter);
              }));
}

// ---- The process-wide buffer ----

TEST_F(LogProxyImplTest, OutputModeIsThatOfTheProcess) {
    LogProxyImpl other("other");
    StdoutOf([&] {
        EXPECT_TRUE(other.SetDebugOutputMode(LOG_OUTPUT_BUFFERED));
        m_proxy.Write(1, "t");
    });
    EXPECT_EQ("", Log());
    other.FlushDebugInfo();
    EXPECT_EQ(Expected(1, 1, "t").Bytes(), Log());
}

TEST_F(LogProxyImplTest, OutputModesOtherThanZeroAndOneAreRefused) {
    for (const int mode : {2, -1, INT_MIN, INT_MAX}) EXPECT_FALSE(m_proxy.SetDebugOutputMode(mode)) << mode;
    EXPECT_EQ(Expected(1, 1, "t").Bytes(), LogOf([](LogProxy& proxy) { proxy.Write(1, "t"); }));  // still immediate
}

// ---- Odd moments ----

TEST_F(LogProxyImplTest, ServesThreadLocalDestructors) {
    static LogProxy* s_proxy;
    s_proxy = &m_proxy;
    struct LogsAtThreadExit {
        ~LogsAtThreadExit() { s_proxy->Printf(1, "thread %s", "exit"); }
    };
    StdoutOf([&] {
        std::thread([] {
            static thread_local std::unique_ptr<LogsAtThreadExit> s_last;
            s_last = std::make_unique<LogsAtThreadExit>();
            s_proxy->Write(1, "thread body");
        }).join();
    });
    EXPECT_THAT(test::Texts(test::ParseLog(Log())), ElementsAre("thread body", "thread exit"));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
