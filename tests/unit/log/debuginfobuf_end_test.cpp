// The end of the buffer while others use it.
#include <atomic>
#include <functional>
#include <thread>

#include <gmock/gmock.h>

#include "logtest.h"
#include "support/capture.h"
#include "support/testclock.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::LogRecord;
using test::MakeInfo;
using test::ParseLog;
using test::Texts;
using testing::ElementsAre;
using Strings = std::vector<std::string>;

constexpr int kThreads = 3;
constexpr int kEnds = 1000;
constexpr int kRecordsPerEnd = 5;  // of each thread

class DebugInfoBufEndTest : public test::LogTest {
protected:
    ~DebugInfoBufEndTest() override { test::Clock::Reset(); }

    /// Three threads repeat `log`, while `end` is called a thousand times.
    /// @return the texts that they logged, sorted
    static Strings LogDuring(const std::function<void()>& end, const std::function<void(const std::string&)>& log) {
        std::atomic<int> ends{0};
        std::atomic<int> total{0};
        std::vector<Strings> logged(kThreads);
        test::StdoutOf([&] {
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t) {
                threads.emplace_back([&, t] {
                    for (int i = 0; ends < kEnds; ++i) {
                        logged[static_cast<std::size_t>(t)].push_back(std::to_string(t) + "." + std::to_string(i));
                        log(logged[static_cast<std::size_t>(t)].back());
                        ++total;
                        // Few enough for no file to be full.
                        test::WaitFor([&] { return i < kRecordsPerEnd * (ends + 1) || ends == kEnds; });
                    }
                });
            }
            for (int before = 0; ends < kEnds;) {
                EXPECT_TRUE(test::WaitFor([&] { return total > before; }));
                end();
                before = total;  // then each of them may log some more
                ++ends;
            }
            for (std::thread& thread : threads) thread.join();
        });
        Strings texts;
        for (const Strings& mine : logged) texts.insert(texts.end(), mine.begin(), mine.end());
        std::sort(texts.begin(), texts.end());
        return texts;
    }

    /// @return what is on the disk, sorted; throws where a record is not whole
    Strings SortedTexts() const {
        Strings texts = Texts(ParseLog(Log()));
        std::sort(texts.begin(), texts.end());
        return texts;
    }

    LogProxy& m_proxy = *BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("name");
};

TEST_F(DebugInfoBufEndTest, EveryImmediateRecordIsOnTheDisk) {
    const Strings logged = LogDuring([] { LogProxyDebugInfoBufMgr::Destroy(); },
                                     [&](const std::string& text) { m_proxy.Write(1, text.c_str()); });

    EXPECT_TRUE(logged == SortedTexts());
    EXPECT_EQ(0U, GetLogLoss().records);
}

TEST_F(DebugInfoBufEndTest, EveryBufferedRecordIsOnTheDisk) {
    const Strings logged = LogDuring([] { LogProxyDebugInfoBufMgr::Destroy(); },
                                     [&](const std::string& text) {
                                         m_proxy.SetDebugOutputMode(LOG_OUTPUT_BUFFERED);
                                         m_proxy.Write(1, text.c_str());
                                     });
    LogProxyDebugInfoBufMgr::Destroy();

    EXPECT_TRUE(logged == SortedTexts());
    EXPECT_EQ(0U, GetLogLoss().records);
}

TEST_F(DebugInfoBufEndTest, PointersThatAreOutOfDateLoseNothing) {
    const Strings logged = LogDuring([] { LogProxyDebugInfoBufMgr::Destroy(); },
                                     [](const std::string& text) {
                                         LogProxyDebugInfoBufMgr* const buffer = LogProxyDebugInfoBufMgr::Instance();
                                         buffer->AppendFiltered(MakeInfo(3, "filtered"));
                                         std::this_thread::yield();
                                         buffer->AppendOutputInfo(MakeInfo(1, text));
                                         buffer->Output();
                                     });

    EXPECT_TRUE(logged == SortedTexts());
}

TEST_F(DebugInfoBufEndTest, ManyMayEndItAtOnce) {
    const Strings logged = LogDuring([] { LogProxyDebugInfoBufMgr::Destroy(); },
                                     [&](const std::string& text) {
                                         m_proxy.Write(1, text.c_str());
                                         LogProxyDebugInfoBufMgr::Destroy();
                                     });

    EXPECT_TRUE(logged == SortedTexts());
}

TEST_F(DebugInfoBufEndTest, NothingIsLostWhileNewFilesAreOpened) {
    const Strings logged = LogDuring([] { LogProxyDebugInfoBufMgr::Instance()->OpenNewFile(); },
                                     [&](const std::string& text) { m_proxy.Write(1, text.c_str()); });

    EXPECT_TRUE(logged == SortedTexts());
}

TEST_F(DebugInfoBufEndTest, APointerThatIsOutOfDateLeadsToTheNewBuffer) {
    LogProxyDebugInfoBufMgr* const buffer = LogProxyDebugInfoBufMgr::Instance();
    LogProxyDebugInfoBufMgr::Destroy();

    EXPECT_TRUE(buffer->SetOutputMode(LOG_OUTPUT_BUFFERED));
    LogProxyDebugInfoBufMgr::Destroy();
    buffer->AppendOutputInfo(MakeInfo(1, "a"));

    EXPECT_THAT(Texts(ParseLog(Log())), ElementsAre("a"));
}

TEST_F(DebugInfoBufEndTest, ASuccessorOfTheSameSecondGoesOnInTheFile) {
    test::Clock::Set(test::kTheSecond, 42);
    LogProxyDebugInfoBufMgr::Instance()->AppendOutputInfo(MakeInfo(1, "a"));
    LogProxyDebugInfoBufMgr::Destroy();
    LogProxyDebugInfoBufMgr::Instance();  // and one that opens no file
    LogProxyDebugInfoBufMgr::Destroy();

    LogProxyDebugInfoBufMgr::Instance()->AppendOutputInfo(MakeInfo(1, "b"));

    const std::vector<LogRecord> records = ParseLog(test::ReadFile(FileOf(test::kTheFileTime)));
    EXPECT_THAT(Texts(records), ElementsAre("a", "b"));
    EXPECT_EQ(1U, records.back().sequence);  // it starts anew
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
