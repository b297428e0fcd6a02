// The stop of the worker, whoever asks for it.
#include <memory>
#include <thread>

#include <gmock/gmock.h>

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>

#include "lighteventhandlermgrtest.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CountedParam;
using test::Handler;
using test::LightEventMgrTest;
using test::OwnMgr;
using test::Record;
using test::WaitFor;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(LightEventMgrTest, FiniWaitsForTheWorkerAndDropsWhatIsQueued) {
    std::atomic<bool> entered{false};
    std::atomic<bool> finished{false};
    std::atomic<int> deletions{0};
    Record<int> calls;
    Handler first([&](int eventId, LightEventParam*) {
        calls.Add(eventId);
        entered = true;
        EXPECT_TRUE(WaitFor([&] { return QueueIsClosed(); }));
        finished = true;
    });
    Handler second([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    Mgr().RegisterHandler(1, &first);
    Mgr().RegisterHandler(2, &second);
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Push_Msg(1, new CountedParam(true, deletions), 0);
    std::vector<std::unique_ptr<CountedParam>> dropped;
    for (int i = 0; i < 3; ++i) {
        dropped.push_back(std::make_unique<CountedParam>(true, deletions));
        Mgr().Push_Msg(2, dropped.back().get(), 0);
    }
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));

    Mgr().Fini();

    // The event under way was finished, its parameter deleted; nothing else happened.
    EXPECT_TRUE(finished);
    EXPECT_EQ(0U, Mgr().thr_count());
    EXPECT_EQ(0U, Mgr().msg_queue()->message_count());
    EXPECT_THAT(calls.Get(), ElementsAre(1));
    EXPECT_EQ(1, deletions);
    EXPECT_THAT(Mgr().find(1), IsEmpty());
    EXPECT_THAT(Mgr().find(2), IsEmpty());
}

TEST_F(LightEventMgrTest, ExitThreadsKeepsTheHandlerTable) {
    Handler a([](int, LightEventParam*) {});
    Mgr().RegisterHandler(1, &a);
    ASSERT_EQ(1, Mgr().Init());
    Mgr().ExitThreads();
    EXPECT_EQ(0U, Mgr().thr_count());
    EXPECT_THAT(Mgr().find(1), ElementsAre(&a));
}

TEST_F(LightEventMgrTest, StoppingWithoutAWorkerReturns) {
    Mgr().ExitThreads();
    Mgr().ExitThreads();
    Mgr().Fini();
    Mgr().Fini();
}

TEST_F(LightEventMgrTest, PushMsgAfterFiniReturnsZeroAndLeavesTheParameterAlone) {
    std::atomic<int> deletions{0};
    Record<int> calls;
    Handler a([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Fini();
    Mgr().RegisterHandler(1, &a);
    CountedParam flagged(true, deletions);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(0, Mgr().Push_Msg(1, &flagged, 0));
    EXPECT_EQ(0, Mgr().Push_Msg(1, nullptr, 0));

    EXPECT_EQ(0, deletions);
    EXPECT_EQ(0U, Mgr().msg_queue()->message_count());
    EXPECT_THAT(calls.Get(), IsEmpty());
}

TEST_F(LightEventMgrTest, AWorkerStartedAfterFiniEndsAtOnce) {
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Fini();
    EXPECT_EQ(1, Mgr().Init());
    EXPECT_TRUE(WaitFor([&] { return Mgr().thr_count() == 0; }));
}

TEST_F(LightEventMgrTest, ThreadsMayStopTheManagerAtOnce) {
    std::atomic<bool> entered{false};
    std::atomic<bool> finished{false};
    std::atomic<int> early{0};
    Handler a([&](int, LightEventParam*) {
        entered = true;
        EXPECT_TRUE(WaitFor([&] { return QueueIsClosed(); }));
        for (int i = 0; i < 1000; ++i) std::this_thread::yield();
        finished = true;
    });
    Mgr().RegisterHandler(1, &a);
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Push_Msg(1, nullptr, 0);
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));

    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            if (i % 2 == 0) {
                Mgr().ExitThreads();
            } else {
                Mgr().Fini();
            }
            if (!finished) ++early;
        });
    }
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(0, early);
    EXPECT_EQ(0U, Mgr().thr_count());
}

TEST_F(LightEventMgrTest, ExitThreadsFromAHandlerReturnsAtOnce) {
    std::atomic<bool> returned{false};
    Record<int> calls;
    Handler a([&](int eventId, LightEventParam*) {
        calls.Add(eventId);
        Mgr().ExitThreads();
        returned = true;
    });
    Mgr().RegisterHandler(1, &a);
    Mgr().Push_Msg(1, nullptr, 0);
    Mgr().Push_Msg(1, nullptr, 0);
    ASSERT_EQ(1, Mgr().Init());
    ASSERT_TRUE(WaitFor([&] { return Mgr().thr_count() == 0; }));

    EXPECT_TRUE(returned);
    EXPECT_THAT(calls.Get(), ElementsAre(1));
    Mgr().Fini();
}

TEST_F(LightEventMgrTest, ExitThreadsFromAHandlerWhileTheHostWaits) {
    std::atomic<bool> entered{false};
    std::atomic<bool> returned{false};
    Handler a([&](int, LightEventParam*) {
        entered = true;
        EXPECT_TRUE(WaitFor([&] { return QueueIsClosed(); }));
        Mgr().ExitThreads();
        Mgr().Fini();
        returned = true;
    });
    Mgr().RegisterHandler(1, &a);
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Push_Msg(1, nullptr, 0);
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));

    Mgr().Fini();

    EXPECT_TRUE(returned);
    EXPECT_EQ(0U, Mgr().thr_count());
}

TEST_F(LightEventMgrTest, AHandlerMayStopAnotherManager) {
    OwnMgr other;
    ASSERT_EQ(1, other.Init());
    std::atomic<bool> returned{false};
    Handler a([&](int, LightEventParam*) {
        other.ExitThreads();
        returned = other.thr_count() == 0;
    });
    Mgr().RegisterHandler(1, &a);
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Push_Msg(1, nullptr, 0);
    EXPECT_TRUE(WaitFor([&] { return returned.load(); }));
    Mgr().Fini();
}

TEST_F(LightEventMgrTest, OpenAndCloseDoNothing) {
    EXPECT_EQ(0, Mgr().open());
    EXPECT_EQ(0, Mgr().open(this));
    EXPECT_EQ(0, Mgr().close());
    EXPECT_EQ(0, Mgr().close(1));
    EXPECT_EQ(0U, Mgr().thr_count());
    EXPECT_FALSE(QueueIsClosed());
}

TEST_F(LightEventMgrTest, NothingAfterInitTakesTheStaticObjectLock) {
    ProxyNamed("First")->Write(LOG_LEVEL_INFO, "");  // The log is its users' to create.
    std::atomic<bool> dispatched{false};
    std::atomic<int> deletions{0};
    Handler a([&](int, LightEventParam*) {
        ProxyNamed("First")->Write(LOG_LEVEL_INFO, "");
        dispatched = true;
    });
    LightEventMgr& mgr = Mgr();
    ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*ACE_Static_Object_Lock::instance());
    ASSERT_TRUE(guard.locked());

    // The first event of the process, then the worker, while this thread keeps the lock.
    std::thread poster([&] {
        LightEventMgr::Instance()->RegisterHandler(1, &a);
        LightEventMgr::Instance()->Push_Msg(1, new CountedParam(true, deletions), 0);
    });
    EXPECT_TRUE(WaitFor([&] { return mgr.msg_queue()->message_count() == 1; }));
    ASSERT_EQ(1, mgr.Init());
    EXPECT_TRUE(WaitFor([&] { return dispatched.load(); }));
    if (!dispatched) guard.release();
    poster.join();
    mgr.Fini();
    EXPECT_EQ(1, deletions);
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
