#include <sys/wait.h>

#include <climits>
#include <cstdlib>
#include <thread>

#include <gmock/gmock.h>

#include "logtest.h"
#include "support/testclock.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::LogRecord;
using test::MakeInfo;
using test::ParseLog;
using test::ReadFile;
using test::Texts;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Strings = std::vector<std::string>;

constexpr std::size_t kFileLimit = 20971520;
constexpr int kCapacity = 8192;
constexpr char kNextFileTime[] = "20240201_000000";

class DebugInfoBufTest : public test::LogTest {
protected:
    DebugInfoBufTest() { test::Clock::Set(test::kTheSecond, 42); }
    ~DebugInfoBufTest() override { test::Clock::Reset(); }

    static LogProxyDebugInfoBufMgr& Buffer() { return *LogProxyDebugInfoBufMgr::Instance(); }
    static void Append(int level, const std::string& text, long seconds = test::kTheSecond, long microseconds = 42) {
        Buffer().AppendOutputInfo(MakeInfo(level, text, seconds, microseconds));
    }
    static void Filter(int level, const std::string& text, long seconds = test::kTheSecond, long microseconds = 42) {
        Buffer().AppendFiltered(MakeInfo(level, text, seconds, microseconds));
    }
    static void SetMode(int mode) { EXPECT_TRUE(Buffer().SetOutputMode(mode)); }

    Strings LoggedTexts() const { return Texts(ParseLog(Log())); }

    static std::string Bytes(unsigned long sequence, int level, const std::string& text) {
        LogRecord record;
        record.sequence = sequence;
        record.level = level;
        record.text = text;
        return record.Bytes();
    }
};

// ---- Life ----

TEST_F(DebugInfoBufTest, IsOneForTheProcess) {
    EXPECT_EQ(LogProxyDebugInfoBufMgr::Instance(), LogProxyDebugInfoBufMgr::Instance());
}

TEST_F(DebugInfoBufTest, IsOneForThreadsThatAskAtOnce) {
    std::vector<LogProxyDebugInfoBufMgr*> found(8);
    std::vector<std::thread> threads;
    for (auto& mine : found) threads.emplace_back([&mine] { mine = LogProxyDebugInfoBufMgr::Instance(); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(std::vector<LogProxyDebugInfoBufMgr*>(8, &Buffer()), found);
}

TEST_F(DebugInfoBufTest, OpensNoFileBeforeTheFirstRecord) {
    Buffer().SetOutputMode(LOG_OUTPUT_IMMEDIATE);
    Filter(3, "filtered");
    EXPECT_FALSE(std::filesystem::exists(m_dir / "Develop"));
    LogProxyDebugInfoBufMgr::Destroy();
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(DebugInfoBufTest, TakesItsDirectoryWhenCreated) {
    Buffer();
    const test::ScopedEnv elsewhere("_APP_LOG_DIR", m_dir / "elsewhere");
    Append(1, "a");
    EXPECT_EQ(Bytes(1, 1, "a"), ReadFile(FileOf(test::kTheFileTime)));
}

TEST_F(DebugInfoBufTest, TakesADirectoryWithTrailingSeparator) {
    const test::ScopedEnv logRoot("_APP_LOG_DIR", m_dir.Path() + "/");
    Append(1, "a");
    EXPECT_EQ(Bytes(1, 1, "a"), ReadFile(FileOf(test::kTheFileTime)));
}

TEST_F(DebugInfoBufTest, DestroyWithoutInstanceDoesNothing) {
    LogProxyDebugInfoBufMgr::Destroy();
    LogProxyDebugInfoBufMgr::Destroy();
    EXPECT_FALSE(std::filesystem::exists(m_dir / "Develop"));
}

TEST_F(DebugInfoBufTest, DestroyWritesWaitingRecordsAndDropsFilteredOnes) {
    SetMode(LOG_OUTPUT_BUFFERED);
    Append(1, "a");
    Filter(3, "filtered");
    Append(2, "b");
    EXPECT_EQ("", Log());
    LogProxyDebugInfoBufMgr::Destroy();
    EXPECT_EQ(Bytes(1, 1, "a") + Bytes(2, 2, "b"), Log());
    SetMode(LOG_OUTPUT_BUFFERED);
    test::Clock::Set(test::kTheSecond + 1);
    Append(0, "c");
    EXPECT_THAT(LoggedTexts(), ElementsAre("a", "b", "c"));
}

TEST_F(DebugInfoBufTest, DestroyRemovesAnEmptyFile) {
    Buffer().Output();
    EXPECT_THAT(Files(), ElementsAre(FileOf(test::kTheFileTime)));
    LogProxyDebugInfoBufMgr::Destroy();
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(DebugInfoBufTest, ARecordAfterDestroyStartsAnew) {
    Append(1, "a");
    SetMode(LOG_OUTPUT_BUFFERED);
    LogProxyDebugInfoBufMgr::Destroy();
    test::Clock::Set(test::kTheSecond + 1);
    Append(1, "b");  // in immediate mode again, and the first of its writer
    EXPECT_EQ(Bytes(1, 1, "a"), ReadFile(FileOf(test::kTheFileTime)));
    EXPECT_EQ(Bytes(1, 1, "b"), ReadFile(FileOf("20240201_000000")));
}

// ---- Immediate output ----

TEST_F(DebugInfoBufTest, WritesEachRecordAtOnce) {
    Append(1, "a");
    EXPECT_EQ(Bytes(1, 1, "a"), Log());
    Append(0, "b");
    EXPECT_EQ(Bytes(1, 1, "a") + Bytes(2, 0, "b"), Log());
    Append(3, "c");
    EXPECT_EQ(Bytes(1, 1, "a") + Bytes(2, 0, "b") + Bytes(3, 3, "c"), Log());
}

TEST_F(DebugInfoBufTest, AnImmediateCriticalRecordLeavesTheRingAlone) {
    Filter(3, "filtered");
    Append(0, "first");
    EXPECT_THAT(LoggedTexts(), ElementsAre("first"));
    SetMode(LOG_OUTPUT_BUFFERED);
    Append(0, "second");
    EXPECT_THAT(LoggedTexts(), ElementsAre("first", "second", "filtered"));
}

TEST_F(DebugInfoBufTest, CopiesItsRecord) {
    SetMode(LOG_OUTPUT_BUFFERED);
    DebugInfo info = MakeInfo(1, "a");
    Buffer().AppendOutputInfo(info);
    info.text = "changed";
    Buffer().Output();
    EXPECT_THAT(LoggedTexts(), ElementsAre("a"));
}

// ---- Buffered output ----

TEST_F(DebugInfoBufTest, BuffersUntilOutput) {
    SetMode(LOG_OUTPUT_BUFFERED);
    Append(1, "a");
    Filter(3, "filtered");
    Append(3, "b");
    EXPECT_FALSE(std::filesystem::exists(m_dir / "Develop"));
    Buffer().Output();
    EXPECT_EQ(Bytes(1, 1, "a") + Bytes(2, 3, "b"), Log());
    Buffer().Output();
    EXPECT_EQ(Bytes(1, 1, "a") + Bytes(2, 3, "b"), Log());
    Append(0, "c");  // the ring was not touched
    EXPECT_EQ(Bytes(1, 1, "a") + Bytes(2, 3, "b") + Bytes(3, 0, "c") + Bytes(4, 3, "filtered"), Log());
}

TEST_F(DebugInfoBufTest, OutputWithoutRecordsOpensTheFile) {
    Buffer().Output();
    EXPECT_THAT(Files(), ElementsAre(FileOf(test::kTheFileTime)));
    EXPECT_EQ("", Log());
    Append(1, "a");
    EXPECT_EQ(Bytes(1, 1, "a"), Log());
}

TEST_F(DebugInfoBufTest, ACriticalRecordBringsTheLast128FilteredOnes) {
    SetMode(LOG_OUTPUT_BUFFERED);
    for (int i = 1; i <= 200; ++i) Filter(3, std::to_string(i), test::kTheSecond, i);
    Append(0, "critical", test::kTheSecond, 201);

    std::string expected;
    for (int i = 73; i <= 200; ++i) {
        LogRecord record;
        record.sequence = static_cast<unsigned long>(i - 72);
        record.stamp = "UTC 2024-01-31 23:59:59.000" + std::string(i < 100 ? "0" : "") + std::to_string(i);
        record.text = std::to_string(i);
        expected += record.Bytes();
    }
    LogRecord critical;
    critical.sequence = 129;
    critical.stamp = "UTC 2024-01-31 23:59:59.000201";
    critical.level = 0;
    critical.text = "critical";
    EXPECT_EQ(expected + critical.Bytes(), Log());

    Append(0, "next", test::kTheSecond, 202);  // the ring is empty now
    EXPECT_EQ(130U, ParseLog(Log()).size());
}

TEST_F(DebugInfoBufTest, TheRingHolds128) {
    SetMode(LOG_OUTPUT_BUFFERED);
    for (int i = 1; i <= 128; ++i) Filter(3, std::to_string(i));
    Append(0, "critical", test::kTheSecond + 1);
    EXPECT_EQ(129U, ParseLog(Log()).size());
    EXPECT_EQ("1", LoggedTexts().front());

    for (int i = 1; i <= 129; ++i) Filter(3, "again " + std::to_string(i));
    Append(0, "critical", test::kTheSecond + 1);
    EXPECT_EQ(129U + 129U, ParseLog(Log()).size());
    EXPECT_EQ("again 2", LoggedTexts()[129]);
}

TEST_F(DebugInfoBufTest, ACriticalRecordMergesByTime) {
    SetMode(LOG_OUTPUT_BUFFERED);
    Append(1, "out 10.5", 10, 5);
    Append(1, "out 10.7", 10, 7);
    Append(1, "out 12.0", 12, 0);
    Filter(3, "filtered 9.9", 9, 9);
    Filter(3, "filtered 10.5", 10, 5);
    Filter(3, "filtered 10.6", 10, 6);
    Filter(3, "filtered 11.999999", 11, 999999);
    Filter(3, "filtered 13.0", 13, 0);
    Filter(3, "filtered 20.0", 20, 0);
    Append(0, "critical 13.0", 13, 0);
    EXPECT_THAT(LoggedTexts(),
                ElementsAre("filtered 9.9", "out 10.5", "filtered 10.5", "filtered 10.6", "out 10.7",
                            "filtered 11.999999", "out 12.0", "critical 13.0", "filtered 13.0", "filtered 20.0"));
}

TEST_F(DebugInfoBufTest, MergingSortsNeitherList) {
    SetMode(LOG_OUTPUT_BUFFERED);
    Append(1, "out 10", 10);
    Append(1, "out 5", 5);
    Filter(3, "filtered 7", 7);
    Filter(3, "filtered 6", 6);
    Append(0, "critical 8", 8);
    EXPECT_THAT(LoggedTexts(), ElementsAre("filtered 7", "filtered 6", "out 10", "out 5", "critical 8"));
}

TEST_F(DebugInfoBufTest, ACriticalRecordAloneIsWritten) {
    SetMode(LOG_OUTPUT_BUFFERED);
    Append(0, "a");
    EXPECT_EQ(Bytes(1, 0, "a"), Log());
}

TEST_F(DebugInfoBufTest, AFilteredCriticalRecordBringsNothing) {
    SetMode(LOG_OUTPUT_BUFFERED);
    Append(1, "a");
    Filter(0, "critical, but switched off");
    EXPECT_EQ("", Log());
}

TEST_F(DebugInfoBufTest, TheFullBufferIsWrittenWithANotice) {
    SetMode(LOG_OUTPUT_BUFFERED);
    std::string expected;
    for (int i = 1; i < kCapacity; ++i) {
        Append(3, std::to_string(i));
        expected += Bytes(static_cast<unsigned long>(i), 3, std::to_string(i));
    }
    Filter(3, "filtered");
    EXPECT_FALSE(std::filesystem::exists(m_dir / "Develop"));

    test::Clock::Set(test::kTheSecond + 5, 123456);
    Append(1, "last");
    expected += Bytes(kCapacity, 1, "last");
    expected += "<8193>\nUTC 2024-02-01 00:00:04.123456, " + test::ThisThread() +
                ", Level = 1, Bundle = debug, Service = debug \nfilename = , lineno = 0\n"
                "Debug cache is full, force output excuted.\n</8193>\n\n";
    EXPECT_EQ(expected, Log());

    Append(3, "waits again");
    EXPECT_EQ(expected, Log());
    Buffer().Output();
    EXPECT_EQ(expected + Bytes(8194, 3, "waits again"), Log());
}

TEST_F(DebugInfoBufTest, ACriticalRecordThatFillsTheBufferGivesNoNotice) {
    SetMode(LOG_OUTPUT_BUFFERED);
    for (int i = 1; i < kCapacity; ++i) Append(3, "t");
    Append(0, "critical");
    EXPECT_EQ(static_cast<std::size_t>(kCapacity), ParseLog(Log()).size());
    EXPECT_EQ("critical", LoggedTexts().back());
}

TEST_F(DebugInfoBufTest, FilteredRecordsDoNotFillTheBuffer) {
    SetMode(LOG_OUTPUT_BUFFERED);
    for (int i = 1; i < kCapacity; ++i) Append(3, "t");
    for (int i = 0; i < 200; ++i) Filter(3, "filtered");
    EXPECT_FALSE(std::filesystem::exists(m_dir / "Develop"));
}

TEST_F(DebugInfoBufTest, TheNoticeReadsTheClockItself) {
    SetMode(LOG_OUTPUT_BUFFERED);
    for (int i = 1; i < kCapacity; ++i) Append(3, "t");
    test::Clock::Break();
    Append(3, "t");
    EXPECT_EQ("UTC 1969-12-31 23:59:59.000000", ParseLog(Log()).back().stamp);
}

// ---- Modes ----

TEST_F(DebugInfoBufTest, OtherModesAreRefused) {
    for (const int before : {LOG_OUTPUT_BUFFERED, LOG_OUTPUT_IMMEDIATE}) {
        SetMode(before);
        for (const int mode : {2, 3, -1, INT_MIN, INT_MAX}) EXPECT_FALSE(Buffer().SetOutputMode(mode)) << mode;
        Append(1, before == LOG_OUTPUT_BUFFERED ? "waits" : "written");
        EXPECT_EQ(before == LOG_OUTPUT_IMMEDIATE, !Log().empty());
    }
}

TEST_F(DebugInfoBufTest, IsImmediateAtFirst) {
    Append(3, "a");
    EXPECT_EQ(Bytes(1, 3, "a"), Log());
}

TEST_F(DebugInfoBufTest, ANewModeTakesEffectWithTheNextRecord) {
    SetMode(LOG_OUTPUT_BUFFERED);
    Append(1, "a");
    Append(1, "b");
    SetMode(LOG_OUTPUT_IMMEDIATE);
    EXPECT_EQ("", Log());
    Append(1, "c");
    EXPECT_EQ(Bytes(1, 1, "a") + Bytes(2, 1, "b") + Bytes(3, 1, "c"), Log());
    SetMode(LOG_OUTPUT_BUFFERED);
    Append(1, "d");
    EXPECT_EQ(Bytes(1, 1, "a") + Bytes(2, 1, "b") + Bytes(3, 1, "c"), Log());
}

// ---- The file ----

TEST_F(DebugInfoBufTest, RotatesAt20MiB) {
    const std::string overhead = Bytes(1, 3, "");
    Append(3, std::string(kFileLimit - overhead.size() - 1, 'x'));
    test::Clock::Set(test::kTheSecond + 1);
    EXPECT_THAT(Files(), ElementsAre(FileOf(test::kTheFileTime)));  // a byte is missing
    Append(3, "second");
    EXPECT_EQ(kFileLimit - 1 + Bytes(2, 3, "second").size(), std::filesystem::file_size(FileOf(test::kTheFileTime)));
    EXPECT_EQ("", ReadFile(FileOf("20240201_000000")));

    test::Clock::Set(test::kTheSecond + 2);
    Append(3, std::string(kFileLimit - overhead.size(), 'x'));
    EXPECT_EQ(kFileLimit, std::filesystem::file_size(FileOf("20240201_000000")));
    EXPECT_EQ("", ReadFile(FileOf("20240201_000001")));
}

TEST_F(DebugInfoBufTest, RotatesWithinABatch) {
    SetMode(LOG_OUTPUT_BUFFERED);
    Append(3, "a");
    Append(3, std::string(kFileLimit, 'x'));
    Append(3, "b");
    // All files of this batch have one name, and the last takes it.
    Buffer().Output();
    EXPECT_EQ(Bytes(3, 3, "b"), Log());
}

TEST_F(DebugInfoBufTest, DropsRecordsWhileNoFileCanBeOpened) {
    const std::string obstacle = m_dir.Write("Develop", "a file in the directory's place");
    Append(1, "lost");
    SetMode(LOG_OUTPUT_BUFFERED);
    Append(1, "lost as well");
    Buffer().Output();
    for (int i = 1; i <= kCapacity; ++i) Append(1, "lost with the full buffer");
    Append(0, "lost, too");
    std::filesystem::remove(obstacle);
    Buffer().Output();
    EXPECT_EQ("", Log());
    SetMode(LOG_OUTPUT_IMMEDIATE);
    Append(1, "kept");
    // Records of a batch for which there is no file are not counted, the notice is.
    EXPECT_EQ(Bytes(2, 1, "kept"), Log());
}

// ---- A new file on request ----

TEST_F(DebugInfoBufTest, GoesOnInANewFile) {
    Append(1, "a");
    test::Clock::Set(test::kTheSecond + 1);
    Buffer().OpenNewFile();
    EXPECT_EQ("", ReadFile(FileOf(kNextFileTime)));
    Append(1, "b");
    EXPECT_EQ(Bytes(1, 1, "a"), ReadFile(FileOf(test::kTheFileTime)));
    EXPECT_EQ(Bytes(2, 1, "b"), ReadFile(FileOf(kNextFileTime)));
}

TEST_F(DebugInfoBufTest, WaitingRecordsGoToTheOldFile) {
    Append(1, "a");
    SetMode(LOG_OUTPUT_BUFFERED);
    Append(1, "waits");
    Filter(3, "filtered");
    test::Clock::Set(test::kTheSecond + 1);
    Buffer().OpenNewFile();
    EXPECT_EQ(Bytes(1, 1, "a") + Bytes(2, 1, "waits"), ReadFile(FileOf(test::kTheFileTime)));
    Append(0, "c");  // the ring was not touched
    EXPECT_EQ(Bytes(3, 0, "c") + Bytes(4, 3, "filtered"), ReadFile(FileOf(kNextFileTime)));
}

TEST_F(DebugInfoBufTest, ANewFileOfTheSameSecondIsTheOldOne) {
    Append(1, "a");
    for (int i = 0; i < 3; ++i) Buffer().OpenNewFile();
    Append(1, "b");
    EXPECT_EQ(Bytes(1, 1, "a") + Bytes(2, 1, "b"), Log());
    EXPECT_THAT(Files(), ElementsAre(FileOf(test::kTheFileTime)));
}

TEST_F(DebugInfoBufTest, ANewFileTakesThePlaceOfOneThatWasMovedAway) {
    Append(1, "a");
    std::filesystem::rename(FileOf(test::kTheFileTime), m_dir / "moved");
    Buffer().OpenNewFile();
    Append(1, "b");
    EXPECT_EQ(Bytes(1, 1, "a"), ReadFile(m_dir / "moved"));
    EXPECT_EQ(Bytes(2, 1, "b"), Log());
}

TEST_F(DebugInfoBufTest, AContinuedFileIsFullAsAnyOther) {
    const std::string overhead = Bytes(1, 3, "");
    Append(3, std::string(kFileLimit - overhead.size() - 1, 'x'));
    Buffer().OpenNewFile();
    test::Clock::Set(test::kTheSecond + 1);
    Append(3, "fills it");
    Append(3, "next");
    EXPECT_EQ(Bytes(3, 3, "next"), ReadFile(FileOf(kNextFileTime)));
}

TEST_F(DebugInfoBufTest, ANewFileLeavesNoEmptyOneBehind) {
    Buffer().Output();
    test::Clock::Set(test::kTheSecond + 1);
    Buffer().OpenNewFile();
    EXPECT_THAT(Files(), ElementsAre(FileOf(kNextFileTime)));
}

TEST_F(DebugInfoBufTest, WithoutAnOpenFileThereIsNothingToGoOnFrom) {
    Buffer().OpenNewFile();
    EXPECT_FALSE(std::filesystem::exists(m_dir / "Develop"));
}

// ---- Threads ----

TEST_F(DebugInfoBufTest, EveryRecordOfManyThreadsIsWrittenWhole) {
    constexpr int kThreads = 8;
    constexpr int kRecords = 2000;
    SetMode(LOG_OUTPUT_BUFFERED);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kRecords; ++i) Append(3, std::to_string(t) + "." + std::to_string(i));
        });
    }
    threads.emplace_back([] {
        for (int i = 0; i < 200; ++i) Buffer().Output();
    });
    for (std::thread& thread : threads) thread.join();
    Buffer().Output();

    Strings expected;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kRecords; ++i) expected.push_back(std::to_string(t) + "." + std::to_string(i));
    }
    Strings logged = LoggedTexts();
    logged.erase(std::remove(logged.begin(), logged.end(), "Debug cache is full, force output excuted."), logged.end());
    std::sort(logged.begin(), logged.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(expected, logged);
}

// ---- The end of the process ----

// Logs when it dies: as a static object after main, and, being made when the log's
// own statics are there already, before them; the function after all static objects.
struct LogsAtExit {
    ~LogsAtExit() {
        if (text != nullptr) BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("exit")->Printf(1, "%s", text);
    }
    const char* text = nullptr;
};

LogsAtExit g_logsAtExit;
const char* g_lastWords = nullptr;

__attribute__((destructor)) void LogLastWords() {
    if (g_lastWords != nullptr)
        BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("exit")->Printf(1, "%s", g_lastWords);
}

class DebugInfoBufExitTest : public DebugInfoBufTest {
protected:
    /// Runs `action` in a child process, which then exits in order.
    template <class Action>
    void RunAndExit(Action action) {
        const pid_t child = fork();
        ASSERT_NE(-1, child);
        if (child == 0) {
            action();
            std::exit(0);
        }
        int status = -1;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        EXPECT_EQ(0, status);
    }
};

TEST_F(DebugInfoBufExitTest, StaticDestructorsLog) {
    RunAndExit([] {
        Append(1, "main");
        static thread_local LogsAtExit s_ofTheThread;
        s_ofTheThread.text = "main thread";
        g_logsAtExit.text = "static object";
        g_lastWords = "last words";
    });
    EXPECT_THAT(LoggedTexts(), ElementsAre("main", "main thread", "static object", "last words"));
}

TEST_F(DebugInfoBufExitTest, TheFirstRecordOfAllMayBeThatOfAStaticDestructor) {
    RunAndExit([] { g_logsAtExit.text = "static object"; });
    EXPECT_THAT(LoggedTexts(), ElementsAre("static object"));
}

TEST_F(DebugInfoBufExitTest, TheFirstRecordOfAllMayComeAfterAllStaticObjects) {
    RunAndExit([] { g_lastWords = "last words"; });
    EXPECT_THAT(LoggedTexts(), ElementsAre("last words"));
}

TEST_F(DebugInfoBufExitTest, RecordsComeAfterDestroyAsWell) {
    RunAndExit([] {
        Append(1, "main");
        LogProxyDebugInfoBufMgr::Destroy();
        BundleMgr::Destroy();
        test::Clock::Set(test::kTheSecond + 1);
        g_logsAtExit.text = "static object";
    });
    EXPECT_THAT(LoggedTexts(), ElementsAre("main", "static object"));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
