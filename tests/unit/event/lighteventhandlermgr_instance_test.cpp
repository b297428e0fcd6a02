// The one event manager of a process: how it comes and how it goes.
#include <memory>
#include <thread>

#include <gmock/gmock.h>

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>

#include "lighteventhandlermgrtest.h"
#include "support/capture.h"
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

TEST_F(LightEventMgrTest, InstanceIsAlwaysTheSame) {
    LightEventMgr* const first = LightEventMgr::Instance();
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(first, LightEventMgr::Instance());
    EXPECT_EQ(0U, first->thr_count());
}

TEST_F(LightEventMgrTest, ThreadsGetOneInstance) {
    std::atomic<bool> go{false};
    std::vector<LightEventMgr*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (LightEventMgr*& slot : seen) {
        threads.emplace_back([&go, &slot] {
            while (!go) std::this_thread::yield();
            slot = LightEventMgr::Instance();
        });
    }
    go = true;
    for (std::thread& thread : threads) thread.join();

    ASSERT_NE(nullptr, seen.front());
    EXPECT_THAT(seen, testing::Each(seen.front()));
}

TEST_F(LightEventMgrTest, DestroyWithoutInstanceDoesNothing) {
    LightEventMgr::Destroy();
    LightEventMgr::Destroy();
}

TEST_F(LightEventMgrTest, AfterDestroyInstanceMakesAFreshManager) {
    Handler handler([](int, LightEventParam*) {});
    Mgr().RegisterHandler(1, &handler);
    ASSERT_EQ(1, Mgr().Init());
    LightEventMgr::Destroy();

    EXPECT_THAT(Mgr().find(1), IsEmpty());
    EXPECT_EQ(0U, Mgr().thr_count());
    EXPECT_EQ(1, Mgr().Init());
    WaitUntilDispatched();
}

TEST_F(LightEventMgrTest, DestroyStopsARunningWorker) {
    std::atomic<bool> finished{false};
    std::atomic<bool> entered{false};
    Handler handler([&](int, LightEventParam*) {
        entered = true;
        EXPECT_TRUE(WaitFor([&] { return QueueIsClosed(); }));
        finished = true;
    });
    Mgr().RegisterHandler(1, &handler);
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Push_Msg(1, nullptr, 0);
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));

    LightEventMgr::Destroy();

    EXPECT_TRUE(finished);
}

TEST_F(LightEventMgrTest, AHandlerMayWriteTheFirstLogRecordDuringDestroy) {
    std::atomic<bool> entered{false};
    Handler handler([&](int, LightEventParam*) {
        entered = true;
        EXPECT_TRUE(WaitFor([&] { return QueueIsClosed(); }));
        LogProxy* const log = ProxyNamed("Late");
        log->SetPosition("late", 4);
        log->Printf(LOG_LEVEL_INFO, "late");
    });
    Mgr().RegisterHandler(1, &handler);
    ASSERT_EQ(1, Mgr().Init());
    // As if nothing had been logged and no manager had been asked for yet.
    BundleMgr::Destroy();
    LogProxyDebugInfoBufMgr::Destroy();
    Mgr().Push_Msg(1, nullptr, 0);
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));

    LightEventMgr::Destroy();

    EXPECT_THAT(Log(), testing::HasSubstr("filename = late, lineno = 4\nlate\n</1>\n\n"));
}

TEST_F(LightEventMgrTest, AHandlerMayTakeTheStaticObjectLockDuringDestroy) {
    std::atomic<bool> entered{false};
    std::atomic<bool> taken{false};
    Handler handler([&](int, LightEventParam*) {
        entered = true;
        EXPECT_TRUE(WaitFor([&] { return QueueIsClosed(); }));
        // Often enough to meet Destroy wherever it is.
        for (int i = 0; i < 1000; ++i) {
            ACE_Guard<ACE_Recursive_Thread_Mutex> guard(*ACE_Static_Object_Lock::instance());
            taken = guard.locked() != 0;
        }
    });
    Mgr().RegisterHandler(1, &handler);
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Push_Msg(1, nullptr, 0);
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));

    LightEventMgr::Destroy();

    EXPECT_TRUE(taken);
}

TEST_F(LightEventMgrTest, ManyThreadsMayCallDestroyAtOnce) {
    std::atomic<int> deletions{0};
    Mgr().Push_Msg(1, new CountedParam(true, deletions), 0);
    ASSERT_EQ(1, Mgr().Init());
    WaitUntilDispatched();

    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&go] {
            while (!go) std::this_thread::yield();
            LightEventMgr::Destroy();
        });
    }
    go = true;
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(1, deletions);
    EXPECT_EQ(0U, Mgr().thr_count());
}

TEST_F(LightEventMgrTest, DestroyFromAHandlerOnlyStopsTheWorker) {
    LightEventMgr* const before = &Mgr();
    std::atomic<LightEventMgr*> after{nullptr};
    Record<std::string> worker;
    Record<int> calls;
    std::atomic<int> deletions{0};
    Handler destroying([&](int, LightEventParam*) {
        worker.Add(ThisThread());
        LightEventMgr::Destroy();
        after = LightEventMgr::Instance();
    });
    Handler next([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    Mgr().RegisterHandler(1, &destroying);
    Mgr().RegisterHandler(1, &next);
    Mgr().RegisterHandler(2, &next);
    CountedParam dropped(true, deletions);
    Mgr().Push_Msg(1, new CountedParam(true, deletions), 0);
    Mgr().Push_Msg(2, &dropped, 0);

    const std::string printed = test::StdoutOf([&] {
        ASSERT_EQ(1, Mgr().Init());
        ASSERT_TRUE(WaitFor([&] { return Mgr().thr_count() == 0; }));
    });

    // The event under way ends as any other, the next one is dropped.
    EXPECT_EQ(before, after);
    EXPECT_EQ(before, LightEventMgr::Instance());
    EXPECT_THAT(calls.Get(), ElementsAre(1));
    EXPECT_EQ(1, deletions);
    const std::string text =
        "[LightEventMgr::Destroy] Called from a handler: the worker is stopped, nothing is deleted.\n";
    EXPECT_EQ(text, printed);
    const std::string log = Log();
    EXPECT_EQ(0U, log.find("<1>\nTIME, " + worker.Get().at(0) +
                           ", Level = 1, Bundle = BundleMgr, Service = Core \n"
                           "filename = lighteventhandlermgr, lineno = "))
        << log;
    EXPECT_THAT(log, testing::EndsWith("\n" + text + "\n</1>\n\n"));

    LightEventMgr::Destroy();
    EXPECT_THAT(Mgr().find(1), IsEmpty());
}

TEST_F(LightEventMgrTest, DestroyFromAHandlerWhileTheHostDestroys) {
    std::atomic<bool> entered{false};
    Handler handler([&](int, LightEventParam*) {
        entered = true;
        EXPECT_TRUE(WaitFor([&] { return QueueIsClosed(); }));
        LightEventMgr::Destroy();
    });
    Mgr().RegisterHandler(1, &handler);
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Push_Msg(1, nullptr, 0);
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));

    LightEventMgr::Destroy();

    EXPECT_THAT(Mgr().find(1), IsEmpty());
}

TEST_F(LightEventMgrTest, DestroyMayBeCalledByAnotherManagersHandler) {
    OwnMgr other;
    std::atomic<bool> done{false};
    Handler handler([&](int, LightEventParam*) {
        LightEventMgr::Destroy();
        done = true;
    });
    Handler forgotten([](int, LightEventParam*) {});
    Mgr().RegisterHandler(1, &forgotten);
    ASSERT_EQ(1, Mgr().Init());
    other.RegisterHandler(1, &handler);
    ASSERT_EQ(1, other.Init());

    other.Push_Msg(1, nullptr, 0);

    ASSERT_TRUE(WaitFor([&] { return done.load(); }));
    other.Fini();
    EXPECT_THAT(Mgr().find(1), IsEmpty());
}

TEST_F(LightEventMgrTest, DeletingARunningManagerStopsItsWorker) {
    auto mgr = std::make_unique<OwnMgr>();
    std::atomic<bool> entered{false};
    std::atomic<bool> finished{false};
    Handler handler([&](int, LightEventParam*) {
        entered = true;
        EXPECT_TRUE(WaitFor([&] { return IsClosed(*mgr); }));
        finished = true;
    });
    std::atomic<int> deletions{0};
    CountedParam dropped(true, deletions);
    mgr->RegisterHandler(1, &handler);
    ASSERT_EQ(1, mgr->Init());
    mgr->Push_Msg(1, nullptr, 0);
    mgr->Push_Msg(1, &dropped, 0);
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));

    // Not reset(), which clears the pointer before the handler has read it.
    delete mgr.get();
    static_cast<void>(mgr.release());

    EXPECT_TRUE(finished);
    EXPECT_EQ(0, deletions);
}

class PlainMgr : public LightEventMgr {
public:
    PlainMgr() = default;
};

TEST_F(LightEventMgrTest, TheBaseClassStopsTheWorkerOfADeletedManager) {
    std::atomic<int> calls{0};
    Handler handler([&](int, LightEventParam*) { ++calls; });
    for (int i = 0; i < 20; ++i) {
        auto* const mgr = new PlainMgr;
        mgr->RegisterHandler(1, &handler);
        ASSERT_EQ(1, mgr->Init());
        mgr->Push_Msg(1, nullptr, 0);
        ASSERT_TRUE(WaitFor([&] { return calls == i + 1; }));
        delete mgr;
    }
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
