#include "src/log/recordstream.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <thread>

#include <gtest/gtest.h>

#include "logtest.h"
#include "recordof.h"
#include "support/replacedfunction.h"
#include "support/wait.h"

namespace {

std::atomic<int> g_writes{0};
std::atomic<int> g_passes{-1};  // writes, before one is held until the thread is cancelled; -1: all
std::atomic<bool> g_isHeld{false};

}  // namespace

// This program's own comes before the C library's.
extern "C" ZO_REPLACES ssize_t write(int fd, const void* data, size_t size) {
    if (fd > STDERR_FILENO) ++g_writes;
    if (g_passes == 0) {
        g_isHeld = true;
        for (;;) pause();  // where it is cancelled, as in a write
    }
    if (g_passes > 0) --g_passes;
    static const auto next = test::Next<ssize_t (*)(int, const void*, size_t)>("write");
    return next(fd, data, size);
}

namespace NS_BUNDLEMGR1 {
namespace {

using test::LogRecord;
using test::MakeInfo;
using test::RecordOf;

class RecordStreamTest : public testing::Test {
protected:
    RecordStreamTest() { m_stream.Open(open(m_path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), 0); }

    bool Write(const std::string& text) {
        const RecordOf record(MakeInfo(3, text));
        const RecordView view = record;
        const RecordFormatter formatted(++m_sequence, test::kTheStamp, view);
        return m_stream.Write(formatted, view.time) == RecordStream::Taken::Yes;
    }
    static std::string Bytes(unsigned long sequence, const std::string& text) {
        LogRecord record;
        record.sequence = sequence;
        record.text = text;
        return record.Bytes();
    }
    std::string Content() const { return test::ReadFile(m_path); }

    /// Runs `action` on a thread that is cancelled in a write, after `passes` others.
    template <class Action>
    void CancelIn(Action action, int passes = 0) {
        g_passes = passes;
        std::thread thread(action);
        EXPECT_TRUE(test::WaitFor([] { return g_isHeld.load(); }));
        pthread_cancel(thread.native_handle());
        thread.join();
        g_passes = -1;
        g_isHeld = false;
    }

    const test::TempDir m_dir;
    const std::string m_path = m_dir / "file";
    RecordStream m_stream;
    std::uint64_t m_sequence = 0;
};

TEST_F(RecordStreamTest, ARecordByItselfIsOneWrite) {
    Write("a");
    g_writes = 0;
    EXPECT_TRUE(m_stream.Flush());
    EXPECT_EQ(1, g_writes);
    EXPECT_EQ(Bytes(1, "a"), Content());
    EXPECT_EQ(Content().size(), m_stream.Bytes());
}

TEST_F(RecordStreamTest, ABatchIsFewWrites) {
    constexpr int kRecords = 1500;
    std::string expected;
    g_writes = 0;
    for (unsigned long i = 1; i <= kRecords; ++i) {
        EXPECT_TRUE(Write("record " + std::to_string(i)));
        expected += Bytes(i, "record " + std::to_string(i));
    }
    EXPECT_TRUE(m_stream.Flush());
    EXPECT_GE(2, g_writes);
    EXPECT_TRUE(expected == Content());
}

TEST_F(RecordStreamTest, RecordsOfEachSizeAroundTheBufferAreWhole) {
    constexpr std::size_t kBuffer = 256 * 1024;
    std::string expected;
    unsigned long sequence = 0;
    for (std::size_t size = kBuffer - 225; size <= kBuffer + 50; size += 25) {
        const std::string text(size, static_cast<char>('a' + size % 26));
        EXPECT_TRUE(Write(text));
        expected += Bytes(++sequence, text);
    }
    EXPECT_TRUE(m_stream.Flush());
    EXPECT_TRUE(expected == Content());
}

TEST_F(RecordStreamTest, NumbersAreWrittenInFull) {
    DebugInfo info = MakeInfo(INT_MIN, "t");
    info.line = ULONG_MAX;
    const RecordOf record(info);
    const RecordView view = record;
    const RecordFormatter formatted(UINT64_MAX, test::kTheStamp, view);
    EXPECT_EQ(RecordStream::Taken::Yes, m_stream.Write(formatted, view.time));
    EXPECT_TRUE(m_stream.Flush());
    EXPECT_EQ("<18446744073709551615>\n" + std::string(test::kTheStamp) + ", " + test::ThisThread() +
                  ", Level = -2147483648, Bundle = , Service =  \nfilename = , lineno = 18446744073709551615\nt\n"
                  "</18446744073709551615>\n\n",
              Content());
}

TEST_F(RecordStreamTest, ARecordOfACancelledThreadComesWithTheNext) {
    CancelIn([this] {
        Write("a");
        m_stream.Flush();
    });
    EXPECT_EQ("", Content());
    EXPECT_TRUE(Write("b"));
    EXPECT_TRUE(m_stream.Flush());
    // Its thread was another one.
    EXPECT_EQ(Bytes(2, "b"), Content().substr(Content().size() - Bytes(2, "b").size()));
    EXPECT_EQ(m_stream.Bytes(), Content().size());
    EXPECT_EQ(0U, Content().find("<1>\n"));
}

TEST_F(RecordStreamTest, ALargeRecordOfACancelledThreadLeavesNoPart) {
    CancelIn([this] { Write(std::string(300000, 'x')); });
    EXPECT_TRUE(Write("b"));
    EXPECT_TRUE(m_stream.Flush());
    EXPECT_EQ(Bytes(2, "b"), Content());
}

TEST_F(RecordStreamTest, ALargeRecordThatIsCancelledHalfWrittenLeavesNoPartAndIsCounted) {
    EXPECT_TRUE(Write("a"));
    EXPECT_TRUE(m_stream.Flush());
    const unsigned long long lost = GetLogLoss().records;
    CancelIn([this] { Write(std::string(600000, 'x')); }, 1);
    EXPECT_EQ(Bytes(1, "a"), Content());
    EXPECT_EQ(lost + 1, GetLogLoss().records);
    EXPECT_TRUE(Write("b"));
    EXPECT_TRUE(m_stream.Flush());
    EXPECT_EQ(Bytes(1, "a") + Bytes(3, "b"), Content());
    EXPECT_EQ(m_stream.Bytes(), Content().size());
}

TEST_F(RecordStreamTest, NothingIsWrittenOfWhatIsTheParents) {
    Write("a");
    m_stream.LeaveToParent();
    EXPECT_FALSE(m_stream.IsOpen());
    EXPECT_EQ("", Content());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
