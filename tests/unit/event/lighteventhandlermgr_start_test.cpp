// The start of the worker.
#include <thread>

#include <gmock/gmock.h>

#include "lighteventhandlermgrtest.h"
#include "support/capture.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::LightEventMgrTest;

// Know the singletons without creating them.
struct ExistingBundleMgr : BundleMgr {
    static bool IsThere() { return m_pInstance.load() != nullptr; }
};
struct ExistingLogBuffer : LogProxyDebugInfoBufMgr {
    static bool IsThere() { return m_pInstance.load() != nullptr; }
};

TEST_F(LightEventMgrTest, InitCreatesNothingButTheWorker) {
    EXPECT_EQ(1, Mgr().Init());
    WaitUntilDispatched();

    EXPECT_EQ(1U, Mgr().thr_count());
    EXPECT_FALSE(ExistingBundleMgr::IsThere());
    EXPECT_FALSE(ExistingLogBuffer::IsThere());
    EXPECT_TRUE(std::filesystem::is_empty(m_dir.Path()));
}

TEST_F(LightEventMgrTest, InitOfARunningManagerSucceedsWithoutASecondWorker) {
    EXPECT_EQ(1, Mgr().Init());
    EXPECT_EQ(1, Mgr().Init());
    EXPECT_EQ(1U, Mgr().thr_count());
    WaitUntilDispatched();
    EXPECT_EQ("", Log());
}

TEST_F(LightEventMgrTest, ThreadsMayCallInitAtOnce) {
    std::atomic<int> sum{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) threads.emplace_back([&] { sum += Mgr().Init(); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(8, sum);
    EXPECT_EQ(1U, Mgr().thr_count());
}

// Answers what it is told to instead of starting a thread.
class ActivateMgr : public LightEventMgr {
public:
    explicit ActivateMgr(int answer) : m_answer(answer) {}

    int activate(long flags, int threads, int force, long priority, int group, ACE_Task_Base* task,
                 ACE_hthread_t handles[], void* stack[], size_t stackSize[], ACE_thread_t ids[],
                 const char* names[]) override {
        ++m_calls;
        m_flags = flags;
        m_threads = threads;
        m_force = force;
        m_priority = priority;
        m_group = group;
        m_restIsDefault = task == nullptr && handles == nullptr && stack == nullptr && stackSize == nullptr &&
                          ids == nullptr && names == nullptr;
        return m_answer;
    }

    const int m_answer;
    int m_calls = 0;
    long m_flags = 0;
    int m_threads = 0;
    int m_force = -1;
    long m_priority = 0;
    int m_group = 0;
    bool m_restIsDefault = false;
};

TEST_F(LightEventMgrTest, InitActivatesOneJoinableThreadWithoutInheritedScheduling) {
    ActivateMgr mgr(0);
    EXPECT_EQ(1, mgr.Init());
    EXPECT_EQ(1, mgr.m_calls);
    EXPECT_EQ(0x10002, mgr.m_flags);
    EXPECT_EQ(1, mgr.m_threads);
    EXPECT_EQ(0, mgr.m_force);
    EXPECT_EQ(ACE_DEFAULT_THREAD_PRIORITY, mgr.m_priority);
    EXPECT_EQ(-1, mgr.m_group);
    EXPECT_TRUE(mgr.m_restIsDefault);
    EXPECT_EQ("", Log());
}

TEST_F(LightEventMgrTest, InitTakesAlreadyActiveForSuccess) {
    ActivateMgr mgr(1);
    EXPECT_EQ(1, mgr.Init());
    EXPECT_EQ("", Log());
}

TEST_F(LightEventMgrTest, InitReportsAndLogsAFailedActivation) {
    ActivateMgr mgr(-1);
    int result = -1;
    const std::string printed = test::StdoutOf([&] { result = mgr.Init(); });
    EXPECT_EQ(0, result);
    EXPECT_EQ("[LightEventMgr::Init] Failed to activate svc,errCode is -1", printed);
    EXPECT_EQ("<1>\nTIME, " + ThisThread() +
                  ", Level = 1, Bundle = BundleMgr, Service = Core \n"
                  "filename = lighteventhandlermgr, lineno = 73\n"
                  "[LightEventMgr::Init] Failed to activate svc,errCode is -1\n</1>\n\n",
              Log());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
