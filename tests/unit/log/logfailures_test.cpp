// The log when calls of the system fail, and when the writing of a record causes others.
//
// This program's own functions come before the C library's, for ACE, too. They pass
// every call on until a test tells them otherwise.
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <thread>

#include <gmock/gmock.h>

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>

#include "logbuffertest.h"
#include "recordof.h"
#include "src/corelog/corelog.h"
#include "src/log/logfile.h"
#include "src/log/logproxyimpl.h"
#include "support/capture.h"
#include "support/replacedfunction.h"
#include "support/wait.h"

namespace {

/// A function that fails when a test says so, and how often it did.
struct Fault {
    std::atomic<int> next{0};    ///< How many of the next calls fail.
    std::atomic<int> spared{0};  ///< After these.
    std::atomic<int> failed{0};

    bool Strikes() {
        if (next == 0) return false;
        if (spared > 0) {
            --spared;
            return false;
        }
        --next;
        ++failed;
        return true;
    }
};

Fault g_open;
Fault g_write;
Fault g_truncate;
std::atomic<int> g_openError{EMFILE};
std::atomic<int> g_writeResult{-1};
std::atomic<pthread_mutex_t*> g_brokenMutex{nullptr};
std::atomic<int> g_mutexRefused{0};

// Called for each time stamp of a record, unless it is called already.
std::function<void()> g_onTimeStamp;
thread_local int t_timeStampDepth = 0;
std::atomic<int> g_deepestTimeStamp{0};

bool IsLogFile(int fd) {
    return fd > STDERR_FILENO;
}

}  // namespace

using test::Next;

extern "C" {

ZO_REPLACES int open(const char* path, int flags, ...) {
    if (std::strstr(path, "_sys_") != nullptr && g_open.Strikes()) {
        errno = g_openError;
        return -1;
    }
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    static const auto next = Next<int (*)(const char*, int, ...)>("open");
    return next(path, flags, mode);
}

ZO_REPLACES ssize_t write(int fd, const void* data, size_t size) {
    if (IsLogFile(fd) && g_write.Strikes()) {
        errno = ENOSPC;
        return g_writeResult;
    }
    static const auto next = Next<ssize_t (*)(int, const void*, size_t)>("write");
    return next(fd, data, size);
}

ZO_REPLACES int ftruncate(int fd, off_t length) noexcept {
    if (g_truncate.Strikes()) {
        errno = EIO;
        return -1;
    }
    static const auto next = Next<int (*)(int, off_t)>("ftruncate");
    return next(fd, length);
}

ZO_REPLACES int pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (mutex == g_brokenMutex) {
        ++g_mutexRefused;
        return EINVAL;
    }
    static std::atomic<int (*)(pthread_mutex_t*)> next{nullptr};
    if (next == nullptr) next = Next<int (*)(pthread_mutex_t*)>("pthread_mutex_lock");
    return next.load()(mutex);
}

// Asked for the zone's name by each time stamp.
ZO_REPLACES size_t strftime(char* text, size_t size, const char* format, const tm* time) noexcept {
    if (g_onTimeStamp && std::strcmp(format, "%Z") == 0) {
        ++t_timeStampDepth;
        if (t_timeStampDepth > g_deepestTimeStamp) g_deepestTimeStamp = t_timeStampDepth;
        g_onTimeStamp();
        --t_timeStampDepth;
    }
    static const auto next = Next<size_t (*)(char*, size_t, const char*, const tm*)>("strftime");
    return next(text, size, format, time);
}
}

namespace NS_BUNDLEMGR1 {
namespace {

using test::LogRecord;
using test::MakeInfo;
using test::ParseLog;
using test::ReadFile;
using test::StdoutOf;
using test::Texts;
using testing::ElementsAre;
using testing::IsEmpty;

class LogFailuresTest : public test::LogBufferTest {
protected:
    // Larger than the buffer, so that it is written while it is taken.
    static inline const std::string kLarge = std::string(300000, 'x');

    ~LogFailuresTest() override {
        for (Fault* const fault : {&g_open, &g_write, &g_truncate}) {
            EXPECT_EQ(0, fault->next);  // or the test was about something else
            fault->next = 0;
            fault->failed = 0;
        }
        g_openError = EMFILE;
        g_writeResult = -1;
        g_onTimeStamp = nullptr;
    }
};

// ---- Writing fails ----

TEST_F(LogFailuresTest, AFailedFlushSwitchesFiles) {
    Append("1");
    g_write.next = 1;
    Append("2");
    EXPECT_EQ(1, g_write.failed);
    EXPECT_EQ(Bytes(1, "1"), FirstFile());
    NextSecond();
    EXPECT_EQ(1U, Files().size());
    Append("3");
    EXPECT_EQ(Bytes(1, "1"), FirstFile());
    EXPECT_EQ(Bytes(3, "3"), NextFile());
}

TEST_F(LogFailuresTest, AFailedFlushKeepsWhatIsThereInTheSameSecond) {
    Append("1");
    g_write.next = 1;
    Append("2");
    Append("3");
    g_write.next = 1;
    Append("4");
    g_write.next = 1;
    Append("5");
    Append("6");
    EXPECT_EQ(3, g_write.failed);
    EXPECT_EQ(Bytes(1, "1") + Bytes(3, "3") + Bytes(6, "6"), FirstFile());
}

TEST_F(LogFailuresTest, NoEmptyFileStaysWhileFlushesFail) {
    for (int i = 0; i < 3; ++i) {
        g_write.next = 1;
        Append("lost");
        EXPECT_THAT(Files(), IsEmpty());
    }
    Append("kept");
    EXPECT_EQ(Bytes(4, "kept"), FirstFile());
}

TEST_F(LogFailuresTest, AFailedBatchIsNotWrittenLater) {
    Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
    Append("1");
    Append("2");
    g_write.next = 1;
    Buffer().Output();
    Append("3");
    Buffer().Output();
    EXPECT_EQ(Bytes(3, "3"), Log());
}

TEST_F(LogFailuresTest, AFailedFlushOfTheLastBatchLeavesNoEmptyFile) {
    Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
    Append("1");
    g_write.next = 1;
    LogProxyDebugInfoBufMgr::Destroy();
    EXPECT_THAT(Files(), IsEmpty());
}

TEST_F(LogFailuresTest, ALargeRecordThatFailsSwitchesFilesAtOnce) {
    for (const int result : {-1, 0}) {
        LogFile file(m_dir.Path(), "p" + std::to_string(-result), 1000000, 100);
        const auto path = [&](const std::string& fileTime) {
            return m_dir /
                   ("p" + std::to_string(-result) + "_sys_" + fileTime + "_" + std::to_string(getpid()) + ".log");
        };
        test::Clock::Set(test::kTheSecond, 42);
        file.EnsureOpen();
        file.WriteRecord(test::RecordOf(MakeInfo(1, "1")));
        file.Flush();
        NextSecond();
        g_writeResult = result;
        g_write.next = 1;
        file.WriteRecord(test::RecordOf(MakeInfo(1, kLarge)));
        EXPECT_EQ("", ReadFile(path(test::kTheNextFileTime)));
        EXPECT_TRUE(std::filesystem::exists(path(test::kTheNextFileTime)));
        file.WriteRecord(test::RecordOf(MakeInfo(1, "3")));  // the failed one is not tried again
        file.Flush();
        EXPECT_EQ(Bytes(1, "1"), ReadFile(path(test::kTheFileTime)));
        EXPECT_EQ(Bytes(3, "3"), ReadFile(path(test::kTheNextFileTime)));
    }
    EXPECT_EQ(2, g_write.failed);
}

TEST_F(LogFailuresTest, ALargeRecordThatFailsKeepsTheFileOfTheSameSecond) {
    Append("1");
    g_write.next = 1;
    Append(kLarge);
    EXPECT_EQ(1, g_write.failed);
    EXPECT_EQ(Bytes(1, "1"), FirstFile());
    Append("3");
    EXPECT_EQ(Bytes(1, "1") + Bytes(3, "3"), FirstFile());
}

TEST_F(LogFailuresTest, ALargeRecordThatFailsLeavesNoEmptyFile) {
    Append("1");
    NextSecond();
    g_write.next = 1;
    Append(kLarge);
    EXPECT_THAT(Files(), ElementsAre(FileOf(test::kTheFileTime)));
    Append("3");
    EXPECT_EQ(Bytes(3, "3"), NextFile());
}

TEST_F(LogFailuresTest, AFailedBatchHasNoEffectOnTheNextFile) {
    Append("1");
    NextSecond();
    g_write.next = 1;
    g_open.next = 1;
    Append(kLarge);
    EXPECT_THAT(Files(), ElementsAre(FileOf(test::kTheFileTime)));
    Buffer().Output();
    EXPECT_THAT(Files(), ElementsAre(FileOf(test::kTheFileTime), FileOf(test::kTheNextFileTime)));
}

TEST_F(LogFailuresTest, ARecordThatCannotBeCutOffStopsNothing) {
    Append("1");
    // Half a record, and then the disk is full.
    std::ofstream(FileOf(test::kTheFileTime), std::ios::app) << "<2>\nhalf";
    g_write.next = 1;
    g_truncate.next = 1;
    Append("2");
    EXPECT_EQ(1, g_truncate.failed);
    NextSecond();
    Append("3");
    EXPECT_EQ(Bytes(1, "1") + "<2>\nhalf", FirstFile());
    EXPECT_EQ(Bytes(3, "3"), NextFile());
}

TEST_F(LogFailuresTest, AFileThatWasTruncatedDoesNotGrow) {
    Append("1");
    std::filesystem::resize_file(FileOf(test::kTheFileTime), 0);
    g_write.next = 1;
    Append("2");
    EXPECT_EQ("", FirstFile());
    Append("3");
    EXPECT_EQ(Bytes(3, "3"), FirstFile());
}

// ---- What is lost is counted ----

class LogLossTest : public LogFailuresTest {
protected:
    unsigned long long Lost() const { return GetLogLoss().records - m_before; }
    static bool GoesOn() { return GetLogLoss().since != ACE_Time_Value::zero; }

    const unsigned long long m_before = GetLogLoss().records;
};

TEST_F(LogLossTest, NothingIsLostWhileRecordsAreKept) {
    Append("1");
    Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
    Append("2");
    LogProxyDebugInfoBufMgr::Destroy();
    EXPECT_EQ(0U, Lost());
    EXPECT_FALSE(GoesOn());
}

TEST_F(LogLossTest, BeginsWithTheFirstRecordLostAndEndsWithTheNextOneKept) {
    g_open.next = 2;
    Buffer().AppendOutputInfo(MakeInfo(1, "1", test::kTheSecond, 5));
    Buffer().AppendOutputInfo(MakeInfo(1, "2", test::kTheSecond, 6));
    EXPECT_EQ(2U, Lost());
    EXPECT_EQ(ACE_Time_Value(test::kTheSecond, 5), GetLogLoss().since);
    Append("3");
    EXPECT_EQ(2U, Lost());
    EXPECT_FALSE(GoesOn());
}

TEST_F(LogLossTest, CountsEachRecordOfABatch) {
    Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
    for (const char* const text : {"1", "2", "3"}) Append(text);
    g_open.next = 1;
    Buffer().Output();
    EXPECT_EQ(3U, Lost());
    for (const char* const text : {"4", "5"}) Append(text);
    g_write.next = 1;
    Buffer().Output();
    EXPECT_EQ(5U, Lost());
    EXPECT_TRUE(GoesOn());
}

TEST_F(LogLossTest, CountsFilteredRecordsThatWereToBeWritten) {
    Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
    Append("1");
    Buffer().AppendFiltered(MakeInfo(3, "filtered"));
    g_open.next = 1;
    Append("critical", 0);
    EXPECT_EQ(3U, Lost());
}

TEST_F(LogLossTest, CountsNoFilteredRecordThatNobodyAskedFor) {
    for (int i = 0; i < 200; ++i) Buffer().AppendFiltered(MakeInfo(3, "filtered"));
    LogProxyDebugInfoBufMgr::Destroy();
    EXPECT_EQ(0U, Lost());
}

TEST_F(LogLossTest, CountsALargeRecordThatFails) {
    Append("1");
    g_write.next = 1;
    Append(kLarge);
    EXPECT_EQ(1U, Lost());
    EXPECT_TRUE(GoesOn());
}

TEST_F(LogLossTest, CountsARecordWhoseEndNeverReachedTheDisk) {
    Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
    for (const std::string& text : {std::string("1"), kLarge, std::string("3")}) Append(text);
    g_write.next = 1;
    g_write.spared = 2;  // what is before it, and its beginning
    Buffer().Output();
    EXPECT_EQ(Bytes(1, "1") + Bytes(3, "3"), Log());
    EXPECT_EQ(1U, Lost());
    EXPECT_FALSE(GoesOn());
}

TEST_F(LogLossTest, CountsWhatFindsNoFileAfterARotation) {
    LogFile file(m_dir.Path(), "pnbi", 1, 100);
    file.EnsureOpen();
    g_open.next = 1;
    file.WriteRecord(test::RecordOf(MakeInfo(1, "1")));
    file.WriteRecord(test::RecordOf(MakeInfo(1, "2")));
    EXPECT_EQ(1U, Lost());
}

// ---- Opening fails ----

TEST_F(LogFailuresTest, RecordsAreDroppedUntilAFileOpens) {
    g_open.next = 2;
    Append("1");
    EXPECT_THAT(Files(), IsEmpty());
    Buffer().Output();
    Append("3");
    EXPECT_EQ(2, g_open.failed);
    EXPECT_EQ(Bytes(1, "3"), FirstFile());
}

TEST_F(LogFailuresTest, NoEmptyFileStaysThatCannotBeUsed) {
    g_truncate.next = 2;
    Append("lost");
    EXPECT_THAT(Files(), IsEmpty());
    Append("lost");
    EXPECT_THAT(Files(), IsEmpty());
    Append("kept");
    EXPECT_EQ(2, g_truncate.failed);
    EXPECT_EQ(Bytes(1, "kept"), FirstFile());
}

TEST_F(LogFailuresTest, NoRecordIsLostWhereMemoryForTheFileIsShortForAMoment) {
    g_openError = ENOMEM;
    g_open.next = 1;
    Append("kept");
    EXPECT_EQ(Bytes(1, "kept"), FirstFile());
}

TEST_F(LogFailuresTest, RecordsStayWhereThereIsNoMemoryForTheFile) {
    Append("1");
    g_write.next = 1;
    Append("2");
    g_openError = ENOMEM;
    g_open.next = 2;  // a record tries twice
    Append("3");
    EXPECT_EQ(Bytes(1, "1"), FirstFile());
    Append("4");
    EXPECT_EQ(Bytes(1, "1") + Bytes(3, "4"), FirstFile());
}

TEST_F(LogFailuresTest, AFileThatCannotBeTruncatedIsLeft) {
    std::filesystem::create_directories(LogDir());
    std::ofstream(FileOf(test::kTheFileTime)) << "not ours";
    g_truncate.next = 1;
    Append("lost");
    EXPECT_EQ("not ours", FirstFile());
    NextSecond();
    Append("kept");
    EXPECT_EQ("not ours", FirstFile());
    EXPECT_EQ(Bytes(1, "kept"), NextFile());
}

TEST_F(LogFailuresTest, ARotationWithoutNextFileCountsTheRestOfTheBatch) {
    LogFile file(m_dir.Path(), "pnbi", 1, 100);
    const auto path =
        m_dir / ("pnbi_sys_" + std::string(test::kTheNextFileTime) + "_" + std::to_string(getpid()) + ".log");
    file.EnsureOpen();
    g_open.next = 1;
    file.WriteRecord(test::RecordOf(MakeInfo(1, "1")));
    file.WriteRecord(test::RecordOf(MakeInfo(1, "2")));  // finds no file
    file.Flush();
    NextSecond();
    EXPECT_TRUE(file.EnsureOpen());
    EXPECT_EQ(Bytes(1, "1"), ReadFile(m_dir / ("pnbi_sys_" + std::string(test::kTheFileTime) + "_" +
                                               std::to_string(getpid()) + ".log")));
    test::Clock::Set(test::kTheSecond + 2, 42);
    file.WriteRecord(test::RecordOf(MakeInfo(1, "3")));
    file.Close();
    EXPECT_EQ(Bytes(3, "3"), ReadFile(path));
}

// ---- Locks fail ----

class BrokenLock {
public:
    BrokenLock() {
        g_mutexRefused = 0;
        g_brokenMutex = &const_cast<pthread_mutex_t&>(
            reinterpret_cast<const pthread_mutex_t&>(ACE_Static_Object_Lock::instance()->lock()));
    }
    ~BrokenLock() { g_brokenMutex = nullptr; }
    BrokenLock(const BrokenLock&) = delete;
    BrokenLock& operator=(const BrokenLock&) = delete;
};

TEST_F(LogFailuresTest, WithoutStaticObjectLockThereIsNoBuffer) {
    LogProxyImpl proxy("name");
    const unsigned long long lostBefore = GetLogLoss().records;
    const BrokenLock broken;
    EXPECT_EQ(nullptr, LogProxyDebugInfoBufMgr::Instance());
    EXPECT_LT(0, g_mutexRefused);
    EXPECT_EQ("echoed", StdoutOf([&] {
                  proxy.Write(1, "echoed");
                  proxy.DisableLevel(1);
                  proxy.Write(1, "");
                  proxy.FlushDebugInfo();
              }));
    EXPECT_FALSE(proxy.SetDebugOutputMode(LOG_OUTPUT_BUFFERED));
    EXPECT_EQ(2U, GetLogLoss().records - lostBefore);
}

TEST_F(LogFailuresTest, WithoutStaticObjectLockTheDefaultProxyStandsIn) {
    static CoreLog s_log("thesource");
    const BrokenLock broken;
    EXPECT_EQ("raw %d", StdoutOf([] { s_log.Print(1, LOG_LEVEL_ERROR, "raw %d", 1); }));
    EXPECT_LT(0, g_mutexRefused);
}

TEST_F(LogFailuresTest, WithoutStaticObjectLockDestroyLeavesTheBuffer) {
    LogProxyDebugInfoBufMgr* const buffer = LogProxyDebugInfoBufMgr::Instance();
    const BrokenLock broken;
    LogProxyDebugInfoBufMgr::Destroy();
    EXPECT_EQ(buffer, LogProxyDebugInfoBufMgr::Instance());
}

// ---- Writing logs ----

// Knows the buffer without creating one.
class ExistingLog : public LogProxyDebugInfoBufMgr {
public:
    static bool IsThere() { return m_pInstance != nullptr; }
};

class LoggingWriteTest : public LogFailuresTest {
protected:
    LoggingWriteTest() : m_proxy(*BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("name")) {
        g_deepestTimeStamp = 0;
        g_onTimeStamp = [this] {
            Tick();
            m_proxy.Printf(1, "born %d", ++m_born);
        };
    }

    // A time stamp is made anew where the second is another one.
    void Tick() { test::Clock::Set(test::kTheSecond + ++m_ticks); }
    void Write(int level, const char* text) {
        Tick();
        m_proxy.Write(level, text);
    }

    template <class Action>
    void Quietly(Action action) {
        StdoutOf(action);
    }

    LogProxy& m_proxy;
    std::atomic<int> m_ticks{0};
    std::atomic<int> m_born{0};
};

TEST_F(LoggingWriteTest, ARecordBornWhileWritingComesWithTheNextBatch) {
    Quietly([&] {
        Write(1, "1");
        EXPECT_THAT(Texts(ParseLog(Log())), ElementsAre("1"));
        Write(1, "2");
    });
    EXPECT_THAT(Texts(ParseLog(Log())), ElementsAre("1", "born 1", "2"));
    EXPECT_EQ(1, g_deepestTimeStamp);
}

TEST_F(LoggingWriteTest, OfEachBatchOneIsKept) {
    const unsigned long long lostBefore = GetLogLoss().records;
    Quietly([&] {
        m_proxy.SetDebugOutputMode(LOG_OUTPUT_BUFFERED);
        for (int i = 0; i < 3; ++i) Write(1, "waits");
        m_proxy.FlushDebugInfo();
        EXPECT_EQ(3, m_born);
        m_proxy.FlushDebugInfo();
        EXPECT_EQ(4, m_born);
        m_proxy.FlushDebugInfo();
        EXPECT_EQ(5, m_born);
        g_onTimeStamp = nullptr;
        m_proxy.FlushDebugInfo();
        m_proxy.FlushDebugInfo();
    });
    EXPECT_THAT(Texts(ParseLog(Log())), ElementsAre("waits", "waits", "waits", "born 1", "born 4", "born 5"));
    EXPECT_EQ(2U, GetLogLoss().records - lostBefore);
}

TEST_F(LoggingWriteTest, RecordsOfDisabledLevelsBornWhileWritingAreDropped) {
    Quietly([&] {
        m_proxy.DisableLevel(1);
        Write(2, "a");
        m_proxy.SetDebugOutputMode(LOG_OUTPUT_BUFFERED);
        Write(0, "b");
        g_onTimeStamp = nullptr;
        Write(0, "c");
    });
    EXPECT_THAT(Texts(ParseLog(Log())), ElementsAre("a", "b", "c"));
}

TEST_F(LoggingWriteTest, MergedOutputAndTheNoticeMayLogToo) {
    Quietly([&] {
        m_proxy.SetDebugOutputMode(LOG_OUTPUT_BUFFERED);
        Write(0, "critical");
        for (int i = 0; i < 8192; ++i) Write(1, "t");
    });
    const std::vector<LogRecord> records = ParseLog(Log());
    ASSERT_EQ(1U + 1U + 8192U + 1U, records.size());
    EXPECT_EQ("born 1", records[1].text);
    EXPECT_EQ("Debug cache is full, force output excuted.", records.back().text);
}

TEST_F(LoggingWriteTest, WritingMayFlushAndSwitchModes) {
    g_onTimeStamp = [this] {
        m_proxy.FlushDebugInfo();
        m_proxy.SetDebugOutputMode(LOG_OUTPUT_IMMEDIATE);
        Tick();
        m_proxy.WriteText("born");
    };
    Quietly([&] {
        Write(1, "1");
        Write(1, "2");
    });
    EXPECT_THAT(Texts(ParseLog(Log())), ElementsAre("1", "born", "2"));
}

TEST_F(LoggingWriteTest, DestroyMayLogToo) {
    Quietly([&] {
        m_proxy.SetDebugOutputMode(LOG_OUTPUT_BUFFERED);
        Write(1, "1");
        LogProxyDebugInfoBufMgr::Destroy();
    });
    EXPECT_THAT(Texts(ParseLog(Log())), ElementsAre("1"));
    EXPECT_EQ(1, m_born);
}

TEST_F(LoggingWriteTest, DestroyWaitsForARecordThatIsBeingWritten) {
    std::atomic<bool> isWriting{false};
    std::atomic<bool> goOn{false};
    g_onTimeStamp = [&] {
        isWriting = true;
        test::WaitFor([&] { return goOn.load(); });
    };
    Quietly([&] {
        std::thread writer([&] { m_proxy.Write(1, "first"); });
        EXPECT_TRUE(test::WaitFor([&] { return isWriting.load(); }));
        std::atomic<bool> isGone{false};
        std::thread ender([&] {
            LogProxyDebugInfoBufMgr::Destroy();
            isGone = true;
        });
        EXPECT_TRUE(test::WaitFor([] { return !ExistingLog::IsThere(); }));
        EXPECT_FALSE(isGone);
        // Who comes now waits for the end, and then starts anew.
        std::thread late([&] { m_proxy.Write(1, "second"); });
        goOn = true;
        for (std::thread* const thread : {&writer, &ender, &late}) thread->join();
    });
    const std::vector<LogRecord> records = ParseLog(Log());
    EXPECT_THAT(Texts(records), ElementsAre("first", "second"));
    EXPECT_EQ(1U, records.back().sequence);
}

TEST_F(LoggingWriteTest, EachOfTwoDestroysReturnsWhenTheBufferIsGone) {
    std::atomic<bool> isWriting{false};
    std::atomic<bool> goOn{false};
    g_onTimeStamp = [&] {
        isWriting = true;
        test::WaitFor([&] { return goOn.load(); });
    };
    std::string onDisk = "nothing";
    Quietly([&] {
        m_proxy.SetDebugOutputMode(LOG_OUTPUT_BUFFERED);
        m_proxy.Write(1, "waits");
        std::thread first([] { LogProxyDebugInfoBufMgr::Destroy(); });
        EXPECT_TRUE(test::WaitFor([&] { return isWriting.load(); }));
        std::atomic<bool> isCalled{false};
        std::thread second([&] {
            isCalled = true;
            LogProxyDebugInfoBufMgr::Destroy();
            onDisk = Log();
        });
        EXPECT_TRUE(test::WaitFor([&] { return isCalled.load(); }));
        goOn = true;
        first.join();
        second.join();
    });
    EXPECT_THAT(Texts(ParseLog(onDisk)), ElementsAre("waits"));
}

// Knows the bundle manager without creating one.
class ExistingBundleMgr : public BundleMgr {
public:
    static bool IsThere() { return m_pInstance != nullptr; }
};

TEST_F(LoggingWriteTest, WritingCreatesNoBundleManager) {
    static CoreLog s_log("thesource");
    BundleMgr::Destroy();
    g_onTimeStamp = [] { s_log.Print(1, LOG_LEVEL_ERROR, "raw %d|", 1); };
    EXPECT_EQ("1raw %d|2raw %d|", StdoutOf([&] {
                  Write(1, "1");
                  Write(1, "2");
              }));
    EXPECT_FALSE(ExistingBundleMgr::IsThere());
    g_onTimeStamp = nullptr;
    EXPECT_EQ("3", StdoutOf([] { s_log.Print(1, LOG_LEVEL_ERROR, "%d", 3); }));
    EXPECT_THAT(Texts(ParseLog(Log())), ElementsAre("1", "2", "3"));
}

TEST_F(LoggingWriteTest, ManyThreadsMayLogWhileWritingLogs) {
    constexpr int kThreads = 4;
    constexpr int kRecords = 200;
    Quietly([&] {
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&, t] {
                for (int i = 0; i < kRecords; ++i) {
                    Tick();
                    m_proxy.Printf(1, "%d.%d", t, i);
                    m_proxy.SetDebugOutputMode(i % 2);
                }
            });
        }
        for (std::thread& thread : threads) thread.join();
        m_proxy.FlushDebugInfo();
    });
    int own = 0;
    for (const LogRecord& record : ParseLog(Log())) own += record.text.find("born") == std::string::npos ? 1 : 0;
    EXPECT_EQ(kThreads * kRecords, own);
    EXPECT_EQ(1, g_deepestTimeStamp);
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
