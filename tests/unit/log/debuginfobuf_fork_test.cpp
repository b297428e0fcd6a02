// Children that are forked off a process that logs.
#include <spawn.h>
#include <sys/wait.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>

#include <bundlemgr/base.h>

#include "logtest.h"
#include "support/capture.h"
#include "support/wait.h"

namespace {

// What the stacks of the parent's other threads pointed to is no leak of a child.
bool g_isChild = false;

}  // namespace

extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() {
    return g_isChild ? 1 : 0;
}

namespace NS_BUNDLEMGR1 {
namespace {

using test::LogRecord;
using test::MakeInfo;
using test::ParseLog;
using test::Texts;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Strings = std::vector<std::string>;

constexpr unsigned kDeadline = 60;  // seconds

class DebugInfoBufForkTest : public test::LogTest {
protected:
    /// @return the process id of a child that runs `action` and exits with its result
    template <class Action>
    static pid_t Fork(Action action) {
        const pid_t child = fork();
        if (child != 0) return child;
        g_isChild = true;
        alarm(kDeadline);
        std::exit(action());
    }

    static int StatusOf(pid_t child) {
        int status = -1;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        return status;
    }

    template <class Action>
    static pid_t ForkAndWait(Action action) {
        const pid_t child = Fork(action);
        EXPECT_EQ(0, StatusOf(child));
        return child;
    }

    static LogProxyDebugInfoBufMgr& Buffer() { return *LogProxyDebugInfoBufMgr::Instance(); }
    static void Append(const std::string& text, int level = 1) { Buffer().AppendOutputInfo(MakeInfo(level, text)); }

    /// @return the records of one process, in the order of its files
    std::vector<LogRecord> RecordsOf(pid_t process) const {
        std::string log;
        const std::string end = "_" + std::to_string(process) + ".log";
        for (const std::string& file : Files()) {
            if (file.size() > end.size() && file.compare(file.size() - end.size(), end.size(), end) == 0) {
                log += test::ReadFile(file);
            }
        }
        return ParseLog(log);
    }
    Strings TextsOf(pid_t process) const { return Texts(RecordsOf(process)); }
};

TEST_F(DebugInfoBufForkTest, AChildHasAFileOfItsOwn) {
    Append("parent");

    const pid_t child = ForkAndWait([] {
        Append("child");
        return 0;
    });
    Append("parent again");

    EXPECT_THAT(TextsOf(getpid()), ElementsAre("parent", "parent again"));
    EXPECT_THAT(TextsOf(child), ElementsAre("child"));
}

TEST_F(DebugInfoBufForkTest, AChildOfAProcessThatMakesTimeStampsDoesNotHang) {
    std::atomic<bool> stop{false};
    std::thread stamps([&stop] {
        while (!stop) GetZoneTimeStamp(ACE_Time_Value(test::kTheSecond));
    });

    for (int i = 0; i < 100; ++i) {
        ForkAndWait([] {
            Append("child");
            std::_Exit(0);
            return 0;
        });
    }

    stop = true;
    stamps.join();
}

TEST_F(DebugInfoBufForkTest, AChildGoesOnNumberingRecords) {
    Append("1");
    Append("2");

    const pid_t child = ForkAndWait([] {
        Append("3");
        return 0;
    });
    Append("3");

    ASSERT_THAT(RecordsOf(child), SizeIs(1));
    EXPECT_EQ(3U, RecordsOf(child)[0].sequence);
    ASSERT_THAT(RecordsOf(getpid()), SizeIs(3));
    EXPECT_EQ(3U, RecordsOf(getpid())[2].sequence);
}

TEST_F(DebugInfoBufForkTest, AGrandchildHasAFileOfItsOwnAsWell) {
    Append("parent");

    const pid_t child = ForkAndWait([] {
        Append("child");
        ForkAndWait([] {
            Append("grandchild");
            return 0;
        });
        return 0;
    });

    EXPECT_THAT(TextsOf(getpid()), ElementsAre("parent"));
    EXPECT_THAT(TextsOf(child), ElementsAre("child"));
    EXPECT_THAT(Files(), SizeIs(3));
}

TEST_F(DebugInfoBufForkTest, WhatWaitsInTheParentIsNotWrittenByTheChild) {
    Append("written");
    Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
    Append("waits");
    Buffer().AppendFiltered(MakeInfo(3, "filtered"));

    const pid_t child = ForkAndWait([] {
        Append("critical", 0);
        LogProxyDebugInfoBufMgr::Destroy();
        return 0;
    });
    Append("critical of the parent", 0);

    EXPECT_THAT(TextsOf(child), ElementsAre("critical"));
    EXPECT_THAT(TextsOf(getpid()), ElementsAre("written", "waits", "critical of the parent", "filtered"));
}

TEST_F(DebugInfoBufForkTest, AChildThatLogsNothingLeavesNoTrace) {
    Append("written");
    Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);
    Append("waits");

    ForkAndWait([] {
        LogProxyDebugInfoBufMgr::Destroy();
        return 0;
    });
    ForkAndWait([] { return 0; });

    EXPECT_THAT(TextsOf(getpid()), ElementsAre("written"));
    EXPECT_THAT(Files(), SizeIs(1));
}

TEST_F(DebugInfoBufForkTest, AChildDoesNotRemoveTheEmptyFileOfItsParent) {
    Buffer().Output();

    ForkAndWait([] {
        LogProxyDebugInfoBufMgr::Destroy();
        return 0;
    });

    EXPECT_THAT(Files(), SizeIs(1));
    Append("parent");
    EXPECT_THAT(TextsOf(getpid()), ElementsAre("parent"));
}

TEST_F(DebugInfoBufForkTest, AChildKeepsTheOutputMode) {
    Buffer().SetOutputMode(LOG_OUTPUT_BUFFERED);

    const pid_t child = ForkAndWait([&] {
        Append("waits");
        if (!RecordsOf(getpid()).empty()) return 1;
        Buffer().Output();
        return 0;
    });

    EXPECT_THAT(TextsOf(child), ElementsAre("waits"));
}

TEST_F(DebugInfoBufForkTest, AChildHasLostNothingYet) {
    const std::string obstacle = m_dir.Write("Develop", "a file in the directory's place");
    Append("lost");
    EXPECT_EQ(1U, GetLogLoss().records);

    ForkAndWait([] { return GetLogLoss().records == 0 && GetLogLoss().since == ACE_Time_Value::zero ? 0 : 1; });
}

TEST_F(DebugInfoBufForkTest, AChildLogsWhoeverHoldsTheStaticObjectLock) {
    std::atomic<bool> isHeld{false};
    std::atomic<bool> letGo{false};
    std::thread holder([&] {
        const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*ACE_Static_Object_Lock::instance());
        isHeld = true;
        test::WaitFor([&] { return letGo.load(); });
    });
    ASSERT_TRUE(test::WaitFor([&] { return isHeld.load(); }));

    const pid_t child = Fork([] {
        Append("child");
        LogProxyDebugInfoBufMgr::Destroy();
        return 0;
    });
    const int status = StatusOf(child);
    letGo = true;
    holder.join();

    EXPECT_EQ(0, status);
    EXPECT_THAT(TextsOf(child), ElementsAre("child"));
}

TEST_F(DebugInfoBufForkTest, AChildLogsWhenItsOwnThreadHoldsTheStaticObjectLock) {
    pid_t child = -1;
    {
        const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*ACE_Static_Object_Lock::instance());
        child = ForkAndWait([]() -> int {
            Append("child");
            _exit(0);  // as exit would end the lock, which its thread still thinks it holds
        });
    }
    Append("parent");

    EXPECT_THAT(TextsOf(child), ElementsAre("child"));
    EXPECT_THAT(TextsOf(getpid()), ElementsAre("parent"));
}

/// Threads that log in bursts, each through a proxy of its own and one that all share, and
/// end the buffer now and then.
class Traffic {
public:
    explicit Traffic(bool ends) {
        for (int t = 0; t < kThreads; ++t) m_threads.emplace_back([this, t, ends] { Run(t, ends); });
    }
    ~Traffic() { End(); }
    Traffic(const Traffic&) = delete;
    Traffic& operator=(const Traffic&) = delete;

    void End() {
        Burst(kEnd);
        for (std::thread& thread : m_threads) thread.join();
        m_threads.clear();
    }

    /// Begins a burst. @return whether records are being logged
    bool GoesOn() {
        const int before = m_logged;
        Burst(m_burst + 1);
        return test::WaitFor([&] { return m_logged > before + kThreads; });
    }

private:
    static constexpr int kThreads = 4;
    static constexpr int kRounds = 20;  // of a burst
    static constexpr int kEnd = -1;

    void Burst(int burst) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_burst = burst;
        m_hasBegun.notify_all();
    }

    int WaitForBurst(int after) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_hasBegun.wait(lock, [&] { return m_burst != after; });
        return m_burst;
    }

    void Run(int thread, bool ends) {
        for (int burst = WaitForBurst(0); burst != kEnd; burst = WaitForBurst(burst)) {
            for (int round = 0; round < kRounds; ++round) {
                Log(thread, burst * kRounds + round);
                if (ends && round % 10 == thread) LogProxyDebugInfoBufMgr::Destroy();
                ++m_logged;
            }
        }
    }

    static void Log(int thread, int number) {
        LogProxyMgr& manager = *BundleMgr::Instance()->GetLogProxyMgr();
        LogProxy& own = *manager.GetLogProxy((std::to_string(thread) + "." + std::to_string(number % 50)).c_str());
        LogProxy& shared = *manager.GetLogProxy("shared");
        for (LogProxy* const proxy : {&own, &shared}) {
            proxy->SetDebugOutputMode(number / 10 % 2);
            proxy->SetPosition(number % 2 == 0 ? "short" : "a_name_that_takes_memory_of_its_own", 1);
            proxy->DisableAllLevels();
            proxy->EnableAllLevels();
            proxy->Printf(number % 100 == 0 ? 0 : 1, "parent %d.%d", thread, number);
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_hasBegun;
    int m_burst = 0;
    std::atomic<int> m_logged{0};
    std::vector<std::thread> m_threads;
};

class DebugInfoBufForkStormTest : public DebugInfoBufForkTest, public testing::WithParamInterface<bool> {};

TEST_P(DebugInfoBufForkStormTest, ChildrenLogWhateverTheThreadsOfTheirParentDo) {
    constexpr int kChildren = 200;
    std::vector<pid_t> children;
    test::StdoutOf([&] {
        Traffic traffic(GetParam());
        for (int i = 0; i < kChildren; ++i) {
            EXPECT_TRUE(traffic.GoesOn());
            children.push_back(ForkAndWait([i] {
                LogProxy& proxy = *BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("shared");
                proxy.SetDebugOutputMode(LOG_OUTPUT_IMMEDIATE);
                proxy.EnableAllLevels();
                for (const char* const text : {"child 1", "child 2", "child 3"}) {
                    proxy.SetPosition("a_name_that_takes_memory_of_its_own", 2);
                    proxy.Write(1, text);
                }
                if (i % 2 == 0) LogProxyDebugInfoBufMgr::Destroy();
                if (i % 10 != 0) _exit(0);  // sanitizers take their time over exit
                return 0;
            }));
        }
        traffic.End();
    });
    LogProxyDebugInfoBufMgr::Destroy();

    for (const pid_t child : children) EXPECT_THAT(TextsOf(child), ElementsAre("child 1", "child 2", "child 3"));
    const Strings ofParent = TextsOf(getpid());
    EXPECT_FALSE(ofParent.empty());
    for (const std::string& text : ofParent) EXPECT_EQ(0U, text.rfind("parent ", 0)) << text;
}

INSTANTIATE_TEST_SUITE_P(, DebugInfoBufForkStormTest, testing::Bool(),
                         [](const auto& ends) { return ends.param ? "EndsAsWell" : "Logs"; });

TEST_F(DebugInfoBufForkTest, ProgramsAreStartedWhileOthersLog) {
    constexpr int kPrograms = 20;
    std::string name = "/bin/true";
    char* const words[] = {name.data(), nullptr};
    test::StdoutOf([&] {
        Traffic traffic(false);
        for (int i = 0; i < kPrograms; ++i) {
            EXPECT_TRUE(traffic.GoesOn());
            pid_t child = -1;
            ASSERT_EQ(0, posix_spawn(&child, words[0], nullptr, nullptr, words, environ));
            EXPECT_EQ(0, StatusOf(child));
        }
    });
    LogProxyDebugInfoBufMgr::Destroy();

    EXPECT_FALSE(TextsOf(getpid()).empty());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
