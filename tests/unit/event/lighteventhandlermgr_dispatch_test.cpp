// From a posted event to its handlers, and what becomes of its parameter.
#include <memory>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include <gmock/gmock.h>

#include "lighteventhandlermgrtest.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CountedParam;
using test::Handler;
using test::LightEventMgrTest;
using test::Record;
using test::WaitFor;
using testing::ElementsAre;
using testing::IsEmpty;

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

}  // namespace
}  // namespace NS_BUNDLEMGR1
