// The log when memory runs out.
#include <thread>

#include <gmock/gmock.h>

#include "logbuffertest.h"
#include "recordof.h"
#include "src/corelog/corelog.h"
#include "src/log/logfile.h"
#include "support/capture.h"
#include "support/memoryfault.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::LogRecord;
using test::MakeInfo;
using test::MemoryFault;
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
    void ForEachAllocation(int mode, MemoryFault::Duration duration, Check check) {
        m_proxy.SetBundleName("");
        for (long n = 1; n == 1 || MemoryFault::Failed() > 0; ++n) {
            const unsigned long long lostBefore = GetLogLoss().records;
            test::Clock::Set(test::kTheSecond, 42);
            StdoutOf([&] {
                const MemoryFault fault(n, duration);
                Scenario(mode);
            });
            const std::size_t onDisk = ParseLog(Log()).size();
            check(onDisk, GetLogLoss().records - lostBefore);
            for (const std::string& file : Files()) std::filesystem::remove(file);
            m_allocations = n;
        }
    }

    LogProxy& m_proxy = *BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("name");
    long m_allocations = 0;
};

TEST_F(LogMemoryTest, OneFailedAllocationCostsOneRecordAtMost) {
    for (const int mode : {LOG_OUTPUT_BUFFERED, LOG_OUTPUT_IMMEDIATE}) {
        ForEachAllocation(mode, MemoryFault::kOnce, [](std::size_t onDisk, unsigned long long lost) {
            EXPECT_EQ(static_cast<unsigned long long>(kRecords), onDisk + lost);
            EXPECT_GE(1U, lost);
        });
        EXPECT_LT(20, m_allocations);
    }
}

TEST_F(LogMemoryTest, WithoutMemoryEachRecordIsWrittenOrCounted) {
    for (const int mode : {LOG_OUTPUT_BUFFERED, LOG_OUTPUT_IMMEDIATE}) {
        ForEachAllocation(mode, MemoryFault::kFromThenOn, [](std::size_t onDisk, unsigned long long lost) {
            EXPECT_EQ(static_cast<unsigned long long>(kRecords), onDisk + lost);
        });
    }
}

TEST_F(LogMemoryTest, ALargeBatchLosesOneRecordAtMost) {
    constexpr unsigned long kBatch = 2000;
    for (long n = 1; n == 1 || MemoryFault::Failed() > 0; ++n) {
        const unsigned long long lostBefore = GetLogLoss().records;
        Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
        for (unsigned long i = 0; i < kBatch; ++i) Append(kLong);
        {
            const MemoryFault fault(n);
            Buffer().Output();
        }
        LogProxyDebugInfoBufMgr::Destroy();
        const unsigned long long lost = GetLogLoss().records - lostBefore;
        EXPECT_EQ(kBatch, ParseLog(Log()).size() + lost);
        EXPECT_GE(1U, lost);
        for (const std::string& file : Files()) std::filesystem::remove(file);
    }
}

TEST_F(LogMemoryTest, TheNextFileIsOpenedWhenMemoryIsShortForAMoment) {
    constexpr std::size_t kFiles = 4;
    for (long n = 1; n == 1 || MemoryFault::Failed() > 0; ++n) {
        const unsigned long long lostBefore = GetLogLoss().records;
        const test::TempDir dir;
        test::Clock::Set(test::kTheSecond, 42);
        LogFile file(dir.Path(), "pnbi", 1, 100);  // one record each
        const test::RecordOf record(MakeInfo(1, kLong));
        {
            const MemoryFault fault(n);
            for (long i = 1; i <= static_cast<long>(kFiles); ++i) {
                file.EnsureOpen();
                test::Clock::Set(test::kTheSecond + i, 42);
                file.WriteRecord(record);
            }
            file.Close();
        }
        const unsigned long long lost = GetLogLoss().records - lostBefore;
        EXPECT_GE(1U, lost);
        EXPECT_EQ(kFiles, test::FilesIn(dir.Path()).size() + lost) << n;
    }
}

TEST_F(LogMemoryTest, AFullBufferLosesItsNoticeAlone) {
    constexpr unsigned long kCapacity = 8192;
    const DebugInfo info = MakeInfo(1, "t");
    for (long n = 1; n == 1 || MemoryFault::Failed() > 0; ++n) {
        const unsigned long long lostBefore = GetLogLoss().records;
        Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
        for (unsigned long i = 1; i < kCapacity; ++i) Buffer().AppendOutputInfo(info);
        {
            const MemoryFault fault(n);
            Buffer().AppendOutputInfo(info);
        }
        LogProxyDebugInfoBufMgr::Destroy();
        const std::vector<std::string> texts = Texts(ParseLog(Log()));
        const unsigned long long lost = GetLogLoss().records - lostBefore;
        const auto own = static_cast<unsigned long>(std::count(texts.begin(), texts.end(), "t"));
        EXPECT_LE(kCapacity - 1, own);
        EXPECT_EQ(texts.size() == kCapacity + 1 ? 0U : 1U, lost);
        for (const std::string& file : Files()) std::filesystem::remove(file);
    }
}

TEST_F(LogMemoryTest, APositionThatThereIsNoMemoryForIsEmpty) {
    m_proxy.SetPosition("file", 1);
    {
        const MemoryFault fault(1, MemoryFault::kFromThenOn);
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
                  const MemoryFault fault(1, MemoryFault::kFromThenOn);
                  m_proxy.Write(1, kLong);
              }));
}

TEST_F(LogMemoryTest, TheLibrarysOwnMessagesThrowNothing) {
    const auto print = [](CoreLog& log) noexcept { log.Print(1, LOG_LEVEL_ERROR, "raw %s", kLong); };
    for (long n = 1; n == 1 || MemoryFault::Failed() > 0; ++n) {
        const unsigned long long lostBefore = GetLogLoss().records;
        LogProxyDebugInfoBufMgr::Destroy();
        BundleMgr::Destroy();
        const auto log = std::make_unique<CoreLog>("thesource");
        StdoutOf([&] {
            const MemoryFault fault(n);
            print(*log);
        });
        LogProxyDebugInfoBufMgr::Destroy();
        EXPECT_EQ(1U, ParseLog(Log()).size() + GetLogLoss().records - lostBefore) << n;
        for (const std::string& file : Files()) std::filesystem::remove(file);
    }
}

TEST_F(LogMemoryTest, WithoutMemoryTheLibrarysOwnMessagesArePrintedAsTheyStand) {
    BundleMgr::Destroy();
    CoreLog log("thesource");
    const unsigned long long lostBefore = GetLogLoss().records;

    EXPECT_EQ("raw %d", StdoutOf([&] {
                  const MemoryFault fault(1, MemoryFault::kFromThenOn);
                  log.Print(1, LOG_LEVEL_ERROR, "raw %d", 1);
              }));
    EXPECT_EQ(1U, GetLogLoss().records - lostBefore);
    EXPECT_EQ("2", StdoutOf([&] { log.Print(1, LOG_LEVEL_ERROR, "%d", 2); }));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
