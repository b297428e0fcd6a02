// The log when memory runs out.
//
// This program's own operator new comes before the C++ library's. It fails on a thread
// that a test has said so of.
#include <cstdlib>
#include <new>
#include <thread>

#include <gmock/gmock.h>

#include "logbuffertest.h"
#include "src/corelog/corelog.h"
#include "src/log/logfile.h"
#include "support/capture.h"
#include "support/replacednew.h"

namespace {

constexpr long kNever = -1;

thread_local long t_next = kNever;   // which of the coming allocations fails, counted from 1
thread_local bool t_goesOn = false;  // and all that follow it
thread_local long t_failed = 0;

bool Strikes() {
    if (t_next == kNever) return false;
    if (t_next > 1) {
        --t_next;
        return false;
    }
    if (!t_goesOn) t_next = kNever;
    ++t_failed;
    return true;
}

/// While it lives, the n-th allocation of this thread fails.
class MemoryFault {
public:
    explicit MemoryFault(long n, bool goesOn = false) {
        t_failed = 0;
        t_goesOn = goesOn;
        t_next = n;
    }
    ~MemoryFault() { t_next = kNever; }
    MemoryFault(const MemoryFault&) = delete;
    MemoryFault& operator=(const MemoryFault&) = delete;
};

}  // namespace

bool test::RefusesMemory() noexcept {
    return Strikes();
}

namespace NS_BUNDLEMGR1 {
namespace {

using test::LogRecord;
using test::MakeInfo;
using test::ParseLog;
using test::StdoutOf;
using test::Texts;
using testing::ElementsAre;

constexpr char kLong[] = "a text that does not fit into a string object itself";

class LogMemoryTest : public test::LogBufferTest {
protected:
    static constexpr int kRecords = 7;  // of one scenario

    CoreLog m_core{"debuginfobuf_memory_test"};

    /// All that a user does with a log, in one mode. noexcept: what throws ends the program.
    void Scenario(int mode) noexcept {
        m_core.Prepare();
        m_proxy.SetDebugOutputMode(mode);
        m_proxy.SetBundleName(kLong);
        m_proxy.SetServiceName(kLong);
        m_proxy.SetPosition(kLong, 1);
        m_proxy.Write(1, kLong);
        m_proxy.Printf(2, "%s", kLong);
        m_proxy.FlushDebugInfo();
        NextSecond();
        LogProxyDebugInfoBufMgr* const buffer = LogProxyDebugInfoBufMgr::Instance();
        if (buffer != nullptr) buffer->OpenNewFile();
        m_proxy.WriteText(kLong);
        m_proxy.PrintfText("%s", kLong);
        LogProxyDebugInfoBufMgr::Destroy();
        m_proxy.SetDebugOutputMode(mode);
        test::Clock::Set(test::kTheSecond + 2, 42);
        m_proxy.Write(1, kLong);
        m_proxy.Write(1, kLong);
        m_proxy.Write(1, kLong);
        LogProxyDebugInfoBufMgr::Destroy();
    }

    /// Runs it with a fault at each of its allocations. `check` is told how many records
    /// are on the disk and how many were counted as lost.
    template <class Check>
    void ForEachAllocation(int mode, bool goesOn, Check check) {
        m_proxy.SetBundleName("");
        for (long n = 1; n == 1 || t_failed > 0; ++n) {
            const unsigned long long lostBefore = GetLogLoss().records;
            test::Clock::Set(test::kTheSecond, 42);
            StdoutOf([&] {
                const MemoryFault fault(n, goesOn);
                Scenario(mode);
            });
            const long failed = t_failed;
            const std::size_t onDisk = ParseLog(Log()).size();
            check(onDisk, GetLogLoss().records - lostBefore);
            for (const std::string& file : Files()) std::filesystem::remove(file);
            t_failed = failed;
            m_allocations = n;
        }
    }

    LogProxy& m_proxy = *BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("name");
    long m_allocations = 0;
};

TEST_F(LogMemoryTest, OneFailedAllocationCostsOneRecordAtMost) {
    for (const int mode : {LOG_OUTPUT_BUFFERED, LOG_OUTPUT_IMMEDIATE}) {
        ForEachAllocation(mode, false, [](std::size_t onDisk, unsigned long long lost) {
            EXPECT_EQ(static_cast<unsigned long long>(kRecords), onDisk + lost);
            EXPECT_GE(1U, lost);
        });
        EXPECT_LT(20, m_allocations);
    }
}

TEST_F(LogMemoryTest, WithoutMemoryEachRecordIsWrittenOrCounted) {
    for (const int mode : {LOG_OUTPUT_BUFFERED, LOG_OUTPUT_IMMEDIATE}) {
        ForEachAllocation(mode, true, [](std::size_t onDisk, unsigned long long lost) {
            EXPECT_EQ(static_cast<unsigned long long>(kRecords), onDisk + lost);
        });
    }
}

TEST_F(LogMemoryTest, ALargeBatchLosesOneRecordAtMost) {
    constexpr unsigned long kBatch = 2000;
    for (long n = 1; n == 1 || t_failed > 0; ++n) {
        const unsigned long long lostBefore = GetLogLoss().records;
        Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
        for (unsigned long i = 0; i < kBatch; ++i) Append(kLong);
        {
            const MemoryFault fault(n);
            Buffer().Output();
        }
        const long failed = t_failed;
        LogProxyDebugInfoBufMgr::Destroy();
        const unsigned long long lost = GetLogLoss().records - lostBefore;
        EXPECT_EQ(kBatch, ParseLog(Log()).size() + lost);
        EXPECT_GE(1U, lost);
        for (const std::string& file : Files()) std::filesystem::remove(file);
        t_failed = failed;
    }
}

TEST_F(LogMemoryTest, TheNextFileIsOpenedWhenMemoryIsShortForAMoment) {
    constexpr std::size_t kFiles = 4;
    for (long n = 1; n == 1 || t_failed > 0; ++n) {
        const unsigned long long lostBefore = GetLogLoss().records;
        const test::TempDir dir;
        test::Clock::Set(test::kTheSecond, 42);
        LogFile file(dir.Path(), "pnbi", 1, 100);  // one record each
        const DebugInfo info = MakeInfo(1, kLong);
        {
            const MemoryFault fault(n);
            for (long i = 1; i <= static_cast<long>(kFiles); ++i) {
                file.EnsureOpen();
                test::Clock::Set(test::kTheSecond + i, 42);
                file.WriteRecord(info);
            }
            file.Close();
        }
        const long failed = t_failed;
        const unsigned long long lost = GetLogLoss().records - lostBefore;
        EXPECT_GE(1U, lost);
        EXPECT_EQ(kFiles, test::FilesIn(dir.Path()).size() + lost) << n;
        t_failed = failed;
    }
}

TEST_F(LogMemoryTest, AFullBufferLosesItsNoticeAlone) {
    constexpr unsigned long kCapacity = 8192;
    const DebugInfo info = MakeInfo(1, "t");
    for (long n = 1; n == 1 || t_failed > 0; ++n) {
        const unsigned long long lostBefore = GetLogLoss().records;
        Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
        for (unsigned long i = 1; i < kCapacity; ++i) Buffer().AppendOutputInfo(info);
        {
            const MemoryFault fault(n);
            Buffer().AppendOutputInfo(info);
        }
        const long failed = t_failed;
        LogProxyDebugInfoBufMgr::Destroy();
        const std::vector<std::string> texts = Texts(ParseLog(Log()));
        const unsigned long long lost = GetLogLoss().records - lostBefore;
        const auto own = static_cast<unsigned long>(std::count(texts.begin(), texts.end(), "t"));
        EXPECT_LE(kCapacity - 1, own);
        EXPECT_EQ(texts.size() == kCapacity + 1 ? 0U : 1U, lost);
        for (const std::string& file : Files()) std::filesystem::remove(file);
        t_failed = failed;
    }
}

TEST_F(LogMemoryTest, APositionThatThereIsNoMemoryForIsEmpty) {
    m_proxy.SetPosition("file", 1);
    {
        const MemoryFault fault(1, true);
        m_proxy.SetPosition(kLong, 2);
    }
    StdoutOf([&] { m_proxy.Write(1, "a"); });

    const std::vector<LogRecord> records = ParseLog(Log());
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("", records[0].file);
    EXPECT_EQ(2U, records[0].line);
}

TEST_F(LogMemoryTest, ATextIsEchoedWithoutMemoryForItsRecord) {
    LogProxyDebugInfoBufMgr::Instance();

    EXPECT_EQ(kLong, StdoutOf([&] {
                  const MemoryFault fault(1, true);
                  m_proxy.Write(1, kLong);
              }));
}

TEST_F(LogMemoryTest, TheLibrarysOwnMessagesThrowNothing) {
    const auto print = [](CoreLog& log) noexcept { log.Print(1, LOG_LEVEL_ERROR, "raw %s", kLong); };
    for (long n = 1; n == 1 || t_failed > 0; ++n) {
        const unsigned long long lostBefore = GetLogLoss().records;
        LogProxyDebugInfoBufMgr::Destroy();
        BundleMgr::Destroy();
        const auto log = std::make_unique<CoreLog>("thesource");
        StdoutOf([&] {
            const MemoryFault fault(n);
            print(*log);
        });
        const long failed = t_failed;
        LogProxyDebugInfoBufMgr::Destroy();
        EXPECT_EQ(1U, ParseLog(Log()).size() + GetLogLoss().records - lostBefore) << n;
        for (const std::string& file : Files()) std::filesystem::remove(file);
        t_failed = failed;
    }
}

TEST_F(LogMemoryTest, WithoutMemoryTheLibrarysOwnMessagesArePrintedAsTheyStand) {
    BundleMgr::Destroy();
    CoreLog log("thesource");
    const unsigned long long lostBefore = GetLogLoss().records;

    EXPECT_EQ("raw %d", StdoutOf([&] {
                  const MemoryFault fault(1, true);
                  log.Print(1, LOG_LEVEL_ERROR, "raw %d", 1);
              }));
    EXPECT_EQ(1U, GetLogLoss().records - lostBefore);
    EXPECT_EQ("2", StdoutOf([&] { log.Print(1, LOG_LEVEL_ERROR, "%d", 2); }));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
