// The event manager in a child of fork, whose only thread is the one that forked.
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include <gmock/gmock.h>

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>

#include "eventtest.h"
#include "support/wait.h"

#if defined(__SANITIZE_THREAD__)
constexpr bool kChildMayStartThreads = false;  // this sanitizer ends one that does
#else
constexpr bool kChildMayStartThreads = true;
#endif

namespace NS_BUNDLEMGR1 {
namespace {

using test::Handler;
using test::Record;
using test::WaitFor;
using testing::ElementsAre;

constexpr unsigned kDeadlineSeconds = 30;

// What the child found, as its exit status; a child that hangs is ended by the alarm.
template <class Body>
int StatusOfChild(Body body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(kDeadlineSeconds);
        _exit(body() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

// Threads that do something over and over while the test forks.
class Busy {
public:
    template <class Action>
    Busy(int threads, Action action) {
        for (int i = 0; i < threads; ++i) {
            m_threads.emplace_back([this, action] {
                for (; !m_stop; ++m_rounds) action();
            });
        }
        WaitFor([this] { return m_rounds > 0; });
    }
    ~Busy() {
        m_stop = true;
        for (std::thread& thread : m_threads) thread.join();
    }

private:
    std::atomic<bool> m_stop{false};
    std::atomic<long> m_rounds{0};
    std::vector<std::thread> m_threads;
};

// Handlers of the program, which it registers before there is an event manager, and which use
// it: those of the event manager must hold nothing meanwhile.
std::atomic<bool> g_programUsesIt{false};

void UseEventManager() {
    if (!g_programUsesIt) return;
    Handler nobody([](int, LightEventParam*) {});
    LightEventMgr::Instance()->RegisterHandler(7, &nobody);
    LightEventMgr::Instance()->Push_Msg(7, nullptr, 0);
    LightEventMgr::Instance()->UnRegisterHandler(7, &nobody);
}

class LightEventMgrFork : public test::EventTest {
protected:
    // Not while the test is loaded: where it is linked before the library, it would come first.
    static void SetUpTestSuite() { ASSERT_EQ(0, pthread_atfork(UseEventManager, UseEventManager, UseEventManager)); }

    static bool PostAndDestroy() {
        Mgr().Push_Msg(1, nullptr, 0);
        LightEventMgr::Destroy();
        return true;
    }
};

TEST_F(LightEventMgrFork, HandlersOfTheProgramMayUseIt) {
    Mgr().Push_Msg(1, nullptr, 0);
    g_programUsesIt = true;

    EXPECT_EQ(0, StatusOfChild([] { return PostAndDestroy(); }));

    g_programUsesIt = false;
}

TEST_F(LightEventMgrFork, DestroyReturnsInAChildOfARunningManager) {
    ASSERT_EQ(1, Mgr().Init());

    EXPECT_EQ(0, StatusOfChild([] { return PostAndDestroy(); }));
    EXPECT_EQ(0, StatusOfChild([] {
                  LightEventMgr::Instance()->Fini();
                  return PostAndDestroy();
              }));
}

TEST_F(LightEventMgrFork, AChildOfPostersPostsAndDestroys) {
    constexpr int kChildren = 200;
    constexpr std::size_t kWaiting = 1000;
    std::atomic<long> calls{0};
    Handler counting([&](int, LightEventParam*) { ++calls; });
    Mgr().RegisterHandler(1, &counting);
    ASSERT_EQ(1, Mgr().Init());
    {
        const Busy posting(3, [] {
            // What waits is copied by each fork.
            if (Mgr().msg_queue()->message_count() < kWaiting) Mgr().Push_Msg(1, nullptr, 0);
        });
        for (int i = 0; i < kChildren; ++i) ASSERT_EQ(0, StatusOfChild([] { return PostAndDestroy(); }));
    }

    // And the parent goes on.
    const long before = calls;
    Mgr().Push_Msg(1, nullptr, 0);
    EXPECT_TRUE(WaitFor([&] { return calls > before; }));
    LightEventMgr::Destroy();
}

TEST_F(LightEventMgrFork, AChildFindsEveryLockFree) {
    constexpr int kChildren = 100;
    Handler handler([](int, LightEventParam*) {});
    const Busy registering(1, [&] {
        Mgr().RegisterHandler(1, &handler);
        Mgr().UnRegisterHandler(1, &handler);
    });
    const Busy finding(1, [] { static_cast<void>(Mgr().find(1)); });
    const Busy living(1, [] {
        Mgr().Init();
        LightEventMgr::Destroy();
    });
    for (int i = 0; i < kChildren; ++i) {
        ASSERT_EQ(0, StatusOfChild([&] {
                      Mgr().RegisterHandler(2, &handler);
                      const bool registered = Mgr().find(2) == std::list<LightEventHandler*>{&handler};
                      Mgr().Fini();
                      return PostAndDestroy() && registered;
                  }));
    }
}

TEST_F(LightEventMgrFork, AChildFindsTheStaticObjectLockFree) {
    std::atomic<bool> taken{false}, release{false};
    Mgr();
    std::thread holder([&] {
        const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*ACE_Static_Object_Lock::instance());
        taken = true;
        EXPECT_TRUE(WaitFor([&] { return release.load(); }));
    });
    ASSERT_TRUE(WaitFor([&] { return taken.load(); }));

    EXPECT_EQ(0, StatusOfChild([] { return PostAndDestroy(); }));

    release = true;
    holder.join();
}

TEST_F(LightEventMgrFork, WhatWaitsAtTheForkIsTheParents) {
    Record<int> calls;
    Handler noting([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    Mgr().RegisterHandler(1, &noting);
    Mgr().RegisterHandler(2, &noting);
    Mgr().Push_Msg(1, nullptr, 0);

    EXPECT_EQ(0, StatusOfChild([&] {
                  Mgr().Push_Msg(2, nullptr, 0);
                  Mgr().process_msg();
                  return calls.Get() == std::vector<int>{2};
              }));

    Mgr().process_msg();
    EXPECT_THAT(calls.Get(), ElementsAre(1));
}

TEST_F(LightEventMgrFork, AChildThatStartsAWorkerHasItsOwn) {
    if (!kChildMayStartThreads) GTEST_SKIP() << "no threads in a child";
    std::atomic<int> calls{0};
    Handler counting([&](int, LightEventParam*) { ++calls; });
    Mgr().RegisterHandler(1, &counting);
    ASSERT_EQ(1, Mgr().Init());

    EXPECT_EQ(0, StatusOfChild([&] {
                  const bool started = Mgr().Init() == 1;
                  Mgr().Push_Msg(1, nullptr, 0);
                  const bool dispatched = WaitFor([&] { return calls == 1; });
                  LightEventMgr::Destroy();
                  // And a second time, at the same address perhaps.
                  Mgr().RegisterHandler(1, &counting);
                  const bool again = Mgr().Init() == 1;
                  Mgr().Push_Msg(1, nullptr, 0);
                  const bool dispatchedAgain = WaitFor([&] { return calls == 2; });
                  LightEventMgr::Destroy();
                  return started && dispatched && again && dispatchedAgain;
              }));
    EXPECT_EQ(0, calls);
    LightEventMgr::Destroy();
}

TEST_F(LightEventMgrFork, AGrandchildIsAChildToo) {
    ASSERT_EQ(1, Mgr().Init());

    EXPECT_EQ(0, StatusOfChild([] {
                  Mgr().Push_Msg(1, nullptr, 0);
                  return StatusOfChild([] { return PostAndDestroy(); }) == 0 && PostAndDestroy();
              }));
}

TEST_F(LightEventMgrFork, AHandlerMayFork) {
    std::atomic<int> status{-1};
    Handler forking([&](int, LightEventParam*) { status = StatusOfChild([] { return PostAndDestroy(); }); });
    Mgr().RegisterHandler(1, &forking);
    ASSERT_EQ(1, Mgr().Init());

    Mgr().Push_Msg(1, nullptr, 0);

    EXPECT_TRUE(WaitFor([&] { return status == 0; }));
    LightEventMgr::Destroy();
}

TEST_F(LightEventMgrFork, AChildOfTheOneWhoWaitsForDestroyStartsAnew) {
    std::atomic<bool> entered{false}, release{false};
    Handler blocking([&](int, LightEventParam*) {
        entered = true;
        EXPECT_TRUE(WaitFor([&] { return release.load(); }));
    });
    LightEventMgr* const dying = LightEventMgr::Instance();
    dying->RegisterHandler(1, &blocking);
    ASSERT_EQ(1, dying->Init());
    dying->Push_Msg(1, nullptr, 0);
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));
    std::thread ending([] { LightEventMgr::Destroy(); });
    ASSERT_TRUE(WaitFor([&] { return LightEventMgr::Instance() != dying; }));

    EXPECT_EQ(0, StatusOfChild([&] {
                  dying->Push_Msg(1, nullptr, 0);
                  dying->Fini();
                  return PostAndDestroy() && PostAndDestroy();
              }));

    release = true;
    ending.join();
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
