#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include <gmock/gmock.h>

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>

#include "eventtest.h"
#include "src/event/lightinternalmessage.h"
#include "support/capture.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CountedParam;
using test::Handler;
using test::Record;
using test::WaitFor;
using testing::ElementsAre;
using testing::IsEmpty;

// The singleton's constructor is for it and for derived managers.
class OwnMgr : public LightEventMgr {
public:
    OwnMgr() = default;

    // Its worker is ended before its own part goes, as a derived class should.
    ~OwnMgr() override { ExitThreads(); }
};

class LightEventMgrTest : public test::EventTest {
protected:
    LightEventMgr& Mgr() { return *LightEventMgr::Instance(); }

    // Dispatches what was posted before on this thread.
    void DispatchAll() {
        while (Mgr().msg_queue()->message_count() > 0) Mgr().process_msg();
    }

    // The worker has nothing left to do once an event posted last has arrived.
    void WaitUntilDispatched() {
        constexpr int kLast = INT_MIN;
        std::atomic<bool> arrived{false};
        Handler handler([&](int, LightEventParam*) { arrived = true; });
        Mgr().RegisterHandler(kLast, &handler);
        Mgr().Push_Msg(kLast, nullptr, 0);
        ASSERT_TRUE(WaitFor([&] { return arrived.load(); }));
        Mgr().UnRegisterHandler(kLast, &handler);
    }

    bool QueueIsClosed() { return IsClosed(Mgr()); }
};

// ---- Instance and Destroy ------------------------------------------------------------

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

// ---- the handler table ---------------------------------------------------------------

TEST_F(LightEventMgrTest, FindReturnsTheHandlersInRegistrationOrder) {
    Handler a([](int, LightEventParam*) {}), b([](int, LightEventParam*) {}), c([](int, LightEventParam*) {});
    EXPECT_EQ(0, Mgr().RegisterHandler(7, &b));
    EXPECT_EQ(0, Mgr().RegisterHandler(7, &a));
    EXPECT_EQ(0, Mgr().RegisterHandler(8, &c));
    EXPECT_THAT(Mgr().find(7), ElementsAre(&b, &a));
    EXPECT_THAT(Mgr().find(8), ElementsAre(&c));
    EXPECT_THAT(Mgr().find(9), IsEmpty());
}

TEST_F(LightEventMgrTest, FindReturnsACopy) {
    Handler a([](int, LightEventParam*) {});
    Mgr().RegisterHandler(7, &a);
    std::list<LightEventHandler*> copy = Mgr().find(7);
    copy.clear();
    EXPECT_THAT(Mgr().find(7), ElementsAre(&a));
}

TEST_F(LightEventMgrTest, EventIdentifiersMayBeAnyInt) {
    Handler a([](int, LightEventParam*) {});
    for (const int id : {INT_MIN, -1, 0, 1, INT_MAX}) EXPECT_EQ(0, Mgr().RegisterHandler(id, &a));
    for (const int id : {INT_MIN, -1, 0, 1, INT_MAX}) EXPECT_THAT(Mgr().find(id), ElementsAre(&a));
    EXPECT_THAT(Mgr().find(2), IsEmpty());
}

TEST_F(LightEventMgrTest, UnRegisterHandlerRemovesTheFirstOccurrenceOnly) {
    Handler a([](int, LightEventParam*) {}), b([](int, LightEventParam*) {});
    Mgr().RegisterHandler(7, &a);
    Mgr().RegisterHandler(7, &b);
    Mgr().RegisterHandler(7, &a);

    EXPECT_EQ(0, Mgr().UnRegisterHandler(7, &a));
    EXPECT_THAT(Mgr().find(7), ElementsAre(&b, &a));
    EXPECT_EQ(0, Mgr().UnRegisterHandler(7, &a));
    EXPECT_THAT(Mgr().find(7), ElementsAre(&b));
    EXPECT_EQ(0, Mgr().UnRegisterHandler(7, &b));
    EXPECT_THAT(Mgr().find(7), IsEmpty());
    EXPECT_EQ(0, Mgr().UnRegisterHandler(7, &b));
}

TEST_F(LightEventMgrTest, UnRegisteringWhatIsNotThereReturnsZero) {
    Handler a([](int, LightEventParam*) {}), b([](int, LightEventParam*) {});
    Mgr().RegisterHandler(7, &a);
    EXPECT_EQ(0, Mgr().UnRegisterHandler(7, &b));
    EXPECT_EQ(0, Mgr().UnRegisterHandler(8, &a));
    EXPECT_EQ(0, Mgr().UnRegisterHandler(7, nullptr));
    EXPECT_THAT(Mgr().find(7), ElementsAre(&a));
}

TEST_F(LightEventMgrTest, ANullHandlerIsSkipped) {
    Record<int> calls;
    Handler a([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    EXPECT_EQ(0, Mgr().RegisterHandler(7, nullptr));
    EXPECT_EQ(0, Mgr().RegisterHandler(7, &a));
    EXPECT_THAT(Mgr().find(7), ElementsAre(nullptr, &a));
    Mgr().Push_Msg(7, nullptr, 0);
    DispatchAll();
    EXPECT_THAT(calls.Get(), ElementsAre(7));
}

// ---- dispatch ------------------------------------------------------------------------

TEST_F(LightEventMgrTest, EventsReachTheHandlersInPostingOrderAndHandlersInRegistrationOrder) {
    Record<std::string> calls;
    CountedParam* posted[4];
    std::atomic<int> deletions{0};
    const auto named = [&](const std::string& name) {
        return [&calls, &posted, name](int eventId, LightEventParam* param) {
            int which = 0;
            while (posted[which] != param) ++which;
            calls.Add(name + std::to_string(eventId) + "#" + std::to_string(which));
        };
    };
    Handler a(named("a")), b(named("b")), c(named("c"));
    Mgr().RegisterHandler(5, &b);
    Mgr().RegisterHandler(5, &a);
    Mgr().RegisterHandler(6, &c);
    for (CountedParam*& param : posted) param = new CountedParam(true, deletions);

    // Before the worker runs: events wait for it.
    EXPECT_EQ(0, Mgr().Push_Msg(5, posted[0], 0));
    EXPECT_EQ(0, Mgr().Push_Msg(6, posted[1], 0));
    EXPECT_EQ(2U, Mgr().msg_queue()->message_count());
    ASSERT_EQ(1, Mgr().Init());
    EXPECT_EQ(0, Mgr().Push_Msg(5, posted[2], 0));
    EXPECT_EQ(0, Mgr().Push_Msg(6, posted[3], 0));
    WaitUntilDispatched();

    EXPECT_THAT(calls.Get(), ElementsAre("b5#0", "a5#0", "c6#1", "b5#2", "a5#2", "c6#3"));
    EXPECT_EQ(4, deletions);
}

TEST_F(LightEventMgrTest, AHandlerRegisteredTwiceIsCalledTwice) {
    Record<int> calls;
    Handler a([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    Mgr().RegisterHandler(5, &a);
    Mgr().RegisterHandler(5, &a);
    Mgr().Push_Msg(5, nullptr, 0);
    DispatchAll();
    EXPECT_THAT(calls.Get(), ElementsAre(5, 5));

    Mgr().UnRegisterHandler(5, &a);
    Mgr().Push_Msg(5, nullptr, 0);
    DispatchAll();
    EXPECT_THAT(calls.Get(), ElementsAre(5, 5, 5));
}

TEST_F(LightEventMgrTest, HandlersRunOnTheWorkerOnly) {
    Record<std::thread::id> calls;
    Handler a([&](int, LightEventParam*) { calls.Add(std::this_thread::get_id()); });
    Mgr().RegisterHandler(5, &a);
    ASSERT_EQ(1, Mgr().Init());
    for (int i = 0; i < 100; ++i) Mgr().Push_Msg(5, nullptr, i);
    WaitUntilDispatched();

    const std::vector<std::thread::id> threads = calls.Get();
    ASSERT_EQ(100U, threads.size());
    EXPECT_NE(std::this_thread::get_id(), threads.front());
    EXPECT_THAT(threads, testing::Each(threads.front()));
}

TEST_F(LightEventMgrTest, PostingNeverWaitsForAHandler) {
    std::atomic<bool> entered{false};
    std::atomic<bool> release{false};
    std::atomic<int> calls{0};
    Handler a([&](int, LightEventParam*) {
        entered = true;
        if (++calls == 1) {
            EXPECT_TRUE(WaitFor([&] { return release.load(); }));
        }
    });
    Mgr().RegisterHandler(5, &a);
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Push_Msg(5, nullptr, 0);
    ASSERT_TRUE(WaitFor([&] { return entered.load(); }));

    EXPECT_EQ(16384U, Mgr().msg_queue()->high_water_mark());
    EXPECT_EQ(16384U, Mgr().msg_queue()->low_water_mark());
    for (int i = 0; i < 20000; ++i) Mgr().Push_Msg(5, nullptr, 0);
    EXPECT_EQ(20000U, Mgr().msg_queue()->message_count());
    EXPECT_EQ(0U, Mgr().msg_queue()->message_bytes());
    EXPECT_EQ(1, calls);

    release = true;
    WaitUntilDispatched();
    EXPECT_EQ(20001, calls);
}

TEST_F(LightEventMgrTest, AFlaggedParameterIsDeletedOnceAfterTheLastHandler) {
    std::atomic<int> deletions{0};
    Record<int> seen;
    Handler a([&](int, LightEventParam*) { seen.Add(deletions); });
    Mgr().RegisterHandler(5, &a);
    Mgr().RegisterHandler(5, &a);
    Mgr().Push_Msg(5, new CountedParam(true, deletions), 0);
    DispatchAll();
    EXPECT_THAT(seen.Get(), ElementsAre(0, 0));
    EXPECT_EQ(1, deletions);
}

TEST_F(LightEventMgrTest, AFlaggedParameterIsDeletedWithoutAnyHandler) {
    std::atomic<int> deletions{0};
    Mgr().Push_Msg(5, new CountedParam(true, deletions), 0);
    EXPECT_EQ(0, deletions);
    DispatchAll();
    EXPECT_EQ(1, deletions);

    // An entry that lost its last handler is the same case.
    Handler a([](int, LightEventParam*) {});
    Mgr().RegisterHandler(6, &a);
    Mgr().UnRegisterHandler(6, &a);
    Mgr().Push_Msg(6, new CountedParam(true, deletions), 0);
    DispatchAll();
    EXPECT_EQ(2, deletions);
}

TEST_F(LightEventMgrTest, AnUnflaggedParameterStaysThePosters) {
    std::atomic<int> deletions{0};
    {
        CountedParam param(false, deletions);
        Record<LightEventParam*> seen;
        Handler a([&](int, LightEventParam* got) { seen.Add(got); });
        Mgr().RegisterHandler(5, &a);
        Mgr().Push_Msg(5, &param, 0);
        Mgr().Push_Msg(6, &param, 0);
        DispatchAll();
        EXPECT_THAT(seen.Get(), ElementsAre(&param));
        EXPECT_EQ(0, deletions);
    }
    EXPECT_EQ(1, deletions);
}

TEST_F(LightEventMgrTest, TheFlagIsReadWhenTheEventIsPosted) {
    std::atomic<int> deletions{0};
    auto* const late = new CountedParam(false, deletions);
    Mgr().Push_Msg(5, late, 0);
    late->m_bAutoDelete = true;
    DispatchAll();
    EXPECT_EQ(0, deletions);

    Mgr().Push_Msg(5, late, 0);
    late->m_bAutoDelete = false;
    DispatchAll();
    EXPECT_EQ(1, deletions);
}

TEST_F(LightEventMgrTest, ANullParameterReachesTheHandlerAsNull) {
    Record<LightEventParam*> seen;
    Handler a([&](int, LightEventParam* got) { seen.Add(got); });
    Mgr().RegisterHandler(LIGHT_EVENT_SERVICE_REMOVED, &a);
    EXPECT_EQ(0, Mgr().Push_Msg(2, nullptr, 0));
    DispatchAll();
    EXPECT_THAT(seen.Get(), ElementsAre(nullptr));
}

TEST_F(LightEventMgrTest, ProcessMsgDispatchesOneEvent) {
    Record<int> calls;
    Handler a([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    Mgr().RegisterHandler(5, &a);
    Mgr().Push_Msg(5, nullptr, 0);
    Mgr().Push_Msg(5, nullptr, 0);
    Mgr().process_msg();
    EXPECT_THAT(calls.Get(), ElementsAre(5));
    EXPECT_EQ(1U, Mgr().msg_queue()->message_count());
}

TEST_F(LightEventMgrTest, ProcessMsgReturnsAtOnceWhenTheQueueIsClosed) {
    Record<int> calls;
    Handler a([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    Mgr().ExitThreads();
    Mgr().RegisterHandler(5, &a);
    Mgr().Push_Msg(5, nullptr, 0);
    Mgr().process_msg();
    EXPECT_THAT(calls.Get(), IsEmpty());
}

TEST_F(LightEventMgrTest, ABlockThatIsNoEventIsReleased) {
    Record<int> calls;
    Handler a([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    Mgr().RegisterHandler(0, &a);
    Mgr().putq(new ACE_Message_Block(64));
    Mgr().Push_Msg(0, nullptr, 0);
    DispatchAll();
    EXPECT_THAT(calls.Get(), ElementsAre(0));
}

TEST_F(LightEventMgrTest, AnExceptionEndsItsEventOnly) {
    std::atomic<int> deletions{0};
    Record<std::string> calls;
    Handler before([&](int, LightEventParam*) { calls.Add("before"); });
    Handler throwing([&](int eventId, LightEventParam*) {
        calls.Add("throwing");
        if (eventId == 5) throw std::runtime_error("handler");
        throw 42;
    });
    Handler after([&](int, LightEventParam*) { calls.Add("after"); });
    for (const int id : {5, 6}) {
        Mgr().RegisterHandler(id, &before);
        Mgr().RegisterHandler(id, &throwing);
        Mgr().RegisterHandler(id, &after);
    }
    Mgr().RegisterHandler(7, &after);
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Push_Msg(5, new CountedParam(true, deletions), 0);
    Mgr().Push_Msg(6, new CountedParam(true, deletions), 0);
    Mgr().Push_Msg(7, new CountedParam(true, deletions), 0);
    WaitUntilDispatched();

    EXPECT_THAT(calls.Get(), ElementsAre("before", "throwing", "before", "throwing", "after"));
    EXPECT_EQ(3, deletions);
}

// A parameter that a handler's exception meets must not be able to throw in its turn.
static_assert(std::is_nothrow_destructible_v<LightEventParam>);
static_assert(std::has_virtual_destructor_v<LightEventParam>);

TEST_F(LightEventMgrTest, RegistrationChangesApplyFromTheNextEvent) {
    Record<std::string> calls;
    Handler late([&](int, LightEventParam*) { calls.Add("late"); });
    Handler victim([&](int, LightEventParam*) { calls.Add("victim"); });
    std::unique_ptr<Handler> changing;
    changing = std::make_unique<Handler>([&](int, LightEventParam*) {
        calls.Add("changing");
        Mgr().UnRegisterHandler(5, changing.get());
        Mgr().UnRegisterHandler(5, &victim);
        Mgr().RegisterHandler(5, &late);
    });
    Mgr().RegisterHandler(5, changing.get());
    Mgr().RegisterHandler(5, &victim);
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Push_Msg(5, nullptr, 0);
    Mgr().Push_Msg(5, nullptr, 0);
    WaitUntilDispatched();

    EXPECT_THAT(calls.Get(), ElementsAre("changing", "victim", "late"));
}

TEST_F(LightEventMgrTest, AHandlerMayPost) {
    Record<int> calls;
    Handler chain([&](int eventId, LightEventParam*) {
        calls.Add(eventId);
        if (eventId < 5) Mgr().Push_Msg(eventId + 1, nullptr, 0);
    });
    for (int id = 1; id <= 5; ++id) Mgr().RegisterHandler(id, &chain);
    ASSERT_EQ(1, Mgr().Init());
    Mgr().Push_Msg(1, nullptr, 0);
    ASSERT_TRUE(WaitFor([&] { return calls.Size() == 5; }));
    Mgr().Fini();
    EXPECT_THAT(calls.Get(), ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(LightEventMgrTest, AHandlerMayDispatchTheNextEventItself) {
    Record<std::string> calls;
    Handler inner([&](int, LightEventParam*) { calls.Add("inner"); });
    Handler outer([&](int, LightEventParam*) {
        calls.Add("outer");
        Mgr().process_msg();
        calls.Add("outer ends");
    });
    Mgr().RegisterHandler(1, &outer);
    Mgr().RegisterHandler(2, &inner);
    Mgr().Push_Msg(1, nullptr, 0);
    Mgr().Push_Msg(2, nullptr, 0);
    DispatchAll();
    EXPECT_THAT(calls.Get(), ElementsAre("outer", "inner", "outer ends"));
}

TEST_F(LightEventMgrTest, AHandlerThatEndsItsThreadEndsTheWorkerCleanly) {
    std::atomic<int> deletions{0};
    Record<int> calls;
    Handler ending([](int, LightEventParam*) { pthread_exit(nullptr); });
    Handler next([&](int eventId, LightEventParam*) { calls.Add(eventId); });
    Mgr().RegisterHandler(1, &ending);
    Mgr().RegisterHandler(2, &next);
    Mgr().Push_Msg(1, new CountedParam(true, deletions), 0);
    Mgr().Push_Msg(2, nullptr, 0);
    ASSERT_EQ(1, Mgr().Init());
    ASSERT_TRUE(WaitFor([&] { return Mgr().thr_count() == 0; }));

    EXPECT_EQ(1, deletions);
    EXPECT_THAT(calls.Get(), IsEmpty());
    // A new worker takes over.
    ASSERT_EQ(1, Mgr().Init());
    WaitUntilDispatched();
    EXPECT_THAT(calls.Get(), ElementsAre(2));
}

// ---- start and stop ------------------------------------------------------------------

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

// ---- storms --------------------------------------------------------------------------

struct NumberedParam : LightEventParam {
    NumberedParam(int poster_, int number_, std::atomic<int>& deletions_)
        : LightEventParam(true), poster(poster_), number(number_), deletions(deletions_) {}
    ~NumberedParam() override { ++deletions; }

    const int poster;
    const int number;
    std::atomic<int>& deletions;
};

TEST_F(LightEventMgrTest, EightPostersWithRegistrationChangesMeanwhile) {
    constexpr int kPosters = 8;
    constexpr int kEvents = 2000;
    std::atomic<int> deletions{0};
    std::atomic<int> inHandlers{0};
    std::atomic<int> overlaps{0};
    std::atomic<int> disorders{0};
    std::atomic<int> calls{0};
    std::vector<int> last(kPosters, -1);  // the worker's alone
    Handler checking([&](int, LightEventParam* param) {
        if (++inHandlers != 1) ++overlaps;
        const auto* const numbered = static_cast<NumberedParam*>(param);
        int& before = last[static_cast<std::size_t>(numbered->poster)];
        if (numbered->number != before + 1) ++disorders;
        before = numbered->number;
        ++calls;
        --inHandlers;
    });
    std::unique_ptr<Handler> leaving;
    leaving = std::make_unique<Handler>(
        [&](int eventId, LightEventParam*) { Mgr().UnRegisterHandler(eventId, leaving.get()); });
    Handler throwing([](int, LightEventParam*) { throw std::runtime_error("storm"); });
    Mgr().RegisterHandler(1, &checking);
    ASSERT_EQ(1, Mgr().Init());

    std::atomic<bool> posting{true};
    std::vector<std::thread> changers;
    for (int i = 0; i < 2; ++i) {
        changers.emplace_back([&] {
            while (posting) {
                Mgr().RegisterHandler(1, leaving.get());
                Mgr().RegisterHandler(1, &throwing);  // behind the one that checks
                Mgr().UnRegisterHandler(1, &throwing);
                static_cast<void>(Mgr().find(1));
                Mgr().UnRegisterHandler(1, leaving.get());
            }
        });
    }
    std::vector<std::thread> posters;
    for (int poster = 0; poster < kPosters; ++poster) {
        posters.emplace_back([&, poster] {
            for (int number = 0; number < kEvents; ++number) {
                Mgr().Push_Msg(1, new NumberedParam(poster, number, deletions), number);
            }
        });
    }
    for (std::thread& thread : posters) thread.join();
    posting = false;
    for (std::thread& thread : changers) thread.join();
    WaitUntilDispatched();

    EXPECT_EQ(kPosters * kEvents, calls);
    EXPECT_EQ(kPosters * kEvents, deletions);
    EXPECT_EQ(0, overlaps);
    EXPECT_EQ(0, disorders);
}

TEST_F(LightEventMgrTest, FiniInAStormDeletesNoParameterTwice) {
    constexpr std::size_t kPosters = 8;
    constexpr std::size_t kEvents = 2000;
    struct TrackedParam : LightEventParam {
        explicit TrackedParam(std::atomic<int>& deletions_) : LightEventParam(true), deletions(deletions_) {}
        ~TrackedParam() override { ++deletions; }
        std::atomic<int>& deletions;
    };
    std::vector<std::atomic<int>> deletions(kPosters * kEvents);
    std::vector<TrackedParam*> params(kPosters * kEvents);
    for (std::size_t i = 0; i < params.size(); ++i) params[i] = new TrackedParam(deletions[i]);
    std::atomic<int> calls{0};
    Handler counting([&](int, LightEventParam*) { ++calls; });
    Mgr().RegisterHandler(1, &counting);
    ASSERT_EQ(1, Mgr().Init());

    std::vector<std::thread> posters;
    for (std::size_t poster = 0; poster < kPosters; ++poster) {
        posters.emplace_back([&, poster] {
            for (std::size_t i = 0; i < kEvents; ++i) Mgr().Push_Msg(1, params[poster * kEvents + i], 0);
        });
    }
    ASSERT_TRUE(WaitFor([&] { return calls > 100; }));
    Mgr().Fini();
    for (std::thread& thread : posters) thread.join();

    // What was dispatched has been deleted, what was dropped or refused has not.
    int deleted = 0;
    for (std::size_t i = 0; i < params.size(); ++i) {
        ASSERT_LE(deletions[i], 1);
        deleted += deletions[i];
        if (deletions[i] == 0) delete params[i];
    }
    EXPECT_EQ(calls, deleted);
}

TEST_F(LightEventMgrTest, LivesAndDeathsInARow) {
    std::atomic<int> deletions{0};
    int posted = 0;
    for (int life = 0; life < 50; ++life) {
        std::atomic<int> calls{0};
        Handler logging([&](int, LightEventParam*) {
            ProxyNamed("Lives")->Write(LOG_LEVEL_INFO, "");
            if (++calls == 3) Mgr().ExitThreads();
        });
        Mgr().RegisterHandler(1, &logging);
        for (int i = 0; i < 3; ++i, ++posted) Mgr().Push_Msg(1, new CountedParam(true, deletions), 0);
        ASSERT_EQ(1, Mgr().Init());
        ASSERT_TRUE(WaitFor([&] { return calls == 3; }));
        LightEventMgr::Destroy();
    }
    EXPECT_EQ(150, posted);
    EXPECT_EQ(150, deletions);
}

// ---- layout: bundles in the field were compiled against it -----------------------------

// The slot that a pointer to a virtual member function names (Itanium C++ ABI).
template <class Member>
std::size_t SlotOf(Member member) {
    std::uintptr_t word = 0;
    static_assert(sizeof(member) >= sizeof(word));
    std::memcpy(&word, &member, sizeof(word));
    EXPECT_EQ(1U, word % 2) << "not virtual";
    return (word - 1) / sizeof(void*);
}

const void* SlotContent(const void* object, std::size_t slot) {
    const void* const* table = nullptr;
    std::memcpy(&table, object, sizeof(table));
    return table[slot];
}

TEST(LightEventLayout, HandleLightEventIsTheHandlersFirstOwnSlot) {
    const std::size_t lastInherited = SlotOf(&ACE_Event_Handler::remove_reference);
    EXPECT_EQ(lastInherited + 1, SlotOf(&LightEventHandler::HandleLightEvent));

    int seenId = 0;
    LightEventParam* seenParam = nullptr;
    Handler handler([&](int eventId, LightEventParam* param) {
        seenId = eventId;
        seenParam = param;
    });
    LightEventHandler* const base = &handler;
    LightEventParam param;
    using Slot = void (*)(LightEventHandler*, int, LightEventParam*);
    reinterpret_cast<Slot>(const_cast<void*>(SlotContent(base, lastInherited + 1)))(base, 17, &param);
    EXPECT_EQ(17, seenId);
    EXPECT_EQ(&param, seenParam);
    EXPECT_EQ(sizeof(ACE_Event_Handler), sizeof(LightEventHandler));
}

TEST(LightEventLayout, AParameterIsItsTableAndItsFlag) {
    LightEventParam param;
    EXPECT_FALSE(param.m_bAutoDelete);
    EXPECT_TRUE(LightEventParam(true).m_bAutoDelete);
    EXPECT_EQ(sizeof(void*), static_cast<std::size_t>(reinterpret_cast<char*>(&param.m_bAutoDelete) -
                                                      reinterpret_cast<char*>(&param)));
    EXPECT_EQ(2 * sizeof(void*), sizeof(LightEventParam));

    // Slot 1 is the destructor that also frees.
    std::atomic<int> deletions{0};
    LightEventParam* const counted = new CountedParam(true, deletions);
    using Slot = void (*)(LightEventParam*);
    reinterpret_cast<Slot>(const_cast<void*>(SlotContent(counted, 1)))(counted);
    EXPECT_EQ(1, deletions);
}

TEST(LightEventLayout, TheManagerAddsNoSlotToTheTasks) {
    EXPECT_EQ(SlotOf(static_cast<int (ACE_Task_Base::*)(void*)>(&ACE_Task_Base::open)), SlotOf(&LightEventMgr::open));
    EXPECT_EQ(SlotOf(&ACE_Task_Base::close), SlotOf(&LightEventMgr::close));
    EXPECT_EQ(SlotOf(&ACE_Task_Base::svc), SlotOf(&LightEventMgr::svc));
}

TEST(LightEventLayout, AMessageCarriesWhatWasPosted) {
    std::atomic<int> deletions{0};
    auto* param = new CountedParam(true, deletions);
    auto* const message = new LightInternalMessage(4, 5, param);
    EXPECT_EQ(4, message->m_nEventId);
    EXPECT_EQ(5, message->m_nExtra);
    EXPECT_EQ(param, message->m_pParam);
    EXPECT_TRUE(message->m_bAutoDelete);
    EXPECT_EQ(0U, message->total_size());
    EXPECT_LT(static_cast<void*>(&message->m_nEventId), static_cast<void*>(&message->m_nExtra));
    EXPECT_LT(static_cast<void*>(&message->m_nExtra), static_cast<void*>(&message->m_pParam));
    EXPECT_LT(static_cast<void*>(&message->m_pParam), static_cast<void*>(&message->m_bAutoDelete));

    message->DeleteParam();
    EXPECT_EQ(1, deletions);
    EXPECT_EQ(nullptr, message->m_pParam);
    message->DeleteParam();
    EXPECT_EQ(1, deletions);
    message->release();

    param = new CountedParam(true, deletions);
    (new LightInternalMessage(4, 5, param))->release();
    EXPECT_EQ(1, deletions);
    delete param;

    auto* const empty = new LightInternalMessage(4, 5, nullptr);
    EXPECT_FALSE(empty->m_bAutoDelete);
    empty->DeleteParam();
    empty->release();
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
