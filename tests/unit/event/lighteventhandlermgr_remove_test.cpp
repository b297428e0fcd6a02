// Taking handlers away while others may be calling them.
#include <pthread.h>

#include <memory>
#include <thread>

#include <gmock/gmock.h>

#include "eventtest.h"
#include "support/elsewhere.h"
#include "support/forkedchild.h"
#include "support/longcall.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

using std::chrono::milliseconds;
using test::Elsewhere;
using test::Handler;
using test::Peek;
using test::WaitFor;
using testing::IsEmpty;

constexpr int kEvent = 7;
constexpr int kOtherEvent = 8;
constexpr milliseconds kAWhile(50);  // in which what must not happen would

// A handler in which a thread stays until it is let go, as often as it is called.
class Blocking : public LightEventHandler, public test::LongCall {
public:
    void HandleLightEvent(int, LightEventParam*) override { Stay(); }
};

class RemoveHandlerTest : public test::EventTest {
protected:
    static LightEventMgr& StartedMgr() {
        EXPECT_EQ(1, LightEventMgr::Instance()->Init());
        return *LightEventMgr::Instance();
    }

    // Returns when the events that were posted before are handled.
    static void HandleEvents(LightEventMgr& mgr) {
        constexpr int kLast = 99;
        std::atomic<bool> handled{false};
        Handler last([&](int, LightEventParam*) { handled = true; });
        mgr.RegisterHandler(kLast, &last);
        mgr.Push_Msg(kLast, nullptr, 0);
        EXPECT_TRUE(WaitFor([&] { return handled.load(); }));
        LightEventMgr::RemoveHandler(&last);
    }
};

TEST_F(RemoveHandlerTest, UnregistersAHandlerFromAllEventsAndLeavesTheOthers) {
    LightEventMgr& mgr = *LightEventMgr::Instance();
    Handler removed([](int, LightEventParam*) {});
    Handler other([](int, LightEventParam*) {});
    for (const int eventId : {kEvent, kEvent, kOtherEvent}) mgr.RegisterHandler(eventId, &removed);
    mgr.RegisterHandler(kEvent, &other);

    LightEventMgr::RemoveHandler(&removed);

    EXPECT_EQ(std::list<LightEventHandler*>{&other}, mgr.find(kEvent));
    EXPECT_THAT(mgr.find(kOtherEvent), IsEmpty());
}

TEST_F(RemoveHandlerTest, ReturnsWhenTheCallThatIsUnderWayIsOver) {
    LightEventMgr& mgr = StartedMgr();
    Blocking handler;
    mgr.RegisterHandler(kEvent, &handler);
    mgr.Push_Msg(kEvent, nullptr, 0);
    ASSERT_TRUE(handler.AwaitInside());

    const Elsewhere remover([&] { LightEventMgr::RemoveHandler(&handler); });
    EXPECT_FALSE(remover.Finishes(kAWhile));
    handler.Release();
    EXPECT_TRUE(remover.Finishes());
    EXPECT_FALSE(handler.IsInside());
}

TEST_F(RemoveHandlerTest, WaitsForAThreadThatHandlesAnEventByItself) {
    LightEventMgr& mgr = *LightEventMgr::Instance();
    Blocking handler;
    mgr.RegisterHandler(kEvent, &handler);
    mgr.Push_Msg(kEvent, nullptr, 0);
    std::thread thread([&] { mgr.process_msg(); });
    ASSERT_TRUE(handler.AwaitInside());

    const Elsewhere remover([&] { LightEventMgr::RemoveHandler(&handler); });
    EXPECT_FALSE(remover.Finishes(kAWhile));
    handler.Release();
    EXPECT_TRUE(remover.Finishes());
    thread.join();
}

TEST_F(RemoveHandlerTest, AnEventThatIsUnderWayDoesNotReachARemovedHandlerAnyMore) {
    LightEventMgr& mgr = StartedMgr();
    Blocking first;
    std::atomic<int> calls{0};
    auto removed = std::make_unique<Handler>([&](int, LightEventParam*) { ++calls; });
    mgr.RegisterHandler(kEvent, &first);
    mgr.RegisterHandler(kEvent, removed.get());
    mgr.Push_Msg(kEvent, nullptr, 0);
    ASSERT_TRUE(first.AwaitInside());

    // Although the event is still with the first handler, this one is not waited for.
    LightEventMgr::RemoveHandler(removed.get());
    removed.reset();
    first.Release();
    HandleEvents(mgr);
    EXPECT_EQ(0, calls);
    LightEventMgr::RemoveHandler(&first);
}

TEST_F(RemoveHandlerTest, AHandlerMayRemoveAndDeleteTheNextOne) {
    LightEventMgr& mgr = StartedMgr();
    std::atomic<int> calls{0};
    auto next = std::make_unique<Handler>([&](int, LightEventParam*) { ++calls; });
    Handler first([&](int, LightEventParam*) {
        LightEventMgr::RemoveHandler(next.get());
        next.reset();
    });
    mgr.RegisterHandler(kEvent, &first);
    mgr.RegisterHandler(kEvent, next.get());
    mgr.RegisterHandler(kEvent, next.get());
    mgr.Push_Msg(kEvent, nullptr, 0);
    HandleEvents(mgr);
    EXPECT_EQ(0, calls);
    LightEventMgr::RemoveHandler(&first);
}

// A parameter whose end takes as long as it is told.
class LongLivedParam : public LightEventParam {
public:
    explicit LongLivedParam(test::LongCall& end) : LightEventParam(true), m_end(end) {}
    ~LongLivedParam() override { m_end.Stay(); }

private:
    test::LongCall& m_end;
};

void ExpectRemovalWaitsFor(test::LongCall& end, LightEventHandler& handler) {
    const Elsewhere remover([&] { LightEventMgr::RemoveHandler(&handler); });
    EXPECT_FALSE(remover.Finishes(kAWhile));
    end.Release();
    EXPECT_TRUE(remover.Finishes());
}

TEST_F(RemoveHandlerTest, WaitsForTheEndOfTheParameterAfterTheLastCall) {
    LightEventMgr& mgr = StartedMgr();
    std::atomic<int> calls{0};
    Handler handler([&](int, LightEventParam*) { ++calls; });
    for (int i = 0; i < 3; ++i) mgr.RegisterHandler(kEvent, &handler);
    test::LongCall end;
    mgr.Push_Msg(kEvent, new LongLivedParam(end), 0);
    ASSERT_TRUE(end.AwaitInside());
    EXPECT_EQ(3, calls);

    ExpectRemovalWaitsFor(end, handler);
}

TEST_F(RemoveHandlerTest, WaitsForTheEndOfTheParameterOfACallThatThrew) {
    LightEventMgr& mgr = StartedMgr();
    Handler handler([](int, LightEventParam*) { throw 1; });
    mgr.RegisterHandler(kEvent, &handler);
    test::LongCall end;
    mgr.Push_Msg(kEvent, new LongLivedParam(end), 0);
    ASSERT_TRUE(end.AwaitInside());

    ExpectRemovalWaitsFor(end, handler);
}

TEST_F(RemoveHandlerTest, TheLastCallIsThatOfTheLastHandlerThatIsLeft) {
    LightEventMgr& mgr = StartedMgr();
    Blocking first;
    Handler removed([](int, LightEventParam*) {});
    mgr.RegisterHandler(kEvent, &first);
    mgr.RegisterHandler(kEvent, &removed);
    test::LongCall end;
    mgr.Push_Msg(kEvent, new LongLivedParam(end), 0);
    ASSERT_TRUE(first.AwaitInside());
    LightEventMgr::RemoveHandler(&removed);
    first.Release();
    ASSERT_TRUE(end.AwaitInside());

    // Nobody waits for a handler that was not called.
    EXPECT_TRUE(test::CanBeDoneElsewhere([&] { LightEventMgr::RemoveHandler(&removed); }));
    ExpectRemovalWaitsFor(end, first);
}

class SelfRemoving : public LightEventHandler {
public:
    explicit SelfRemoving(std::atomic<int>& calls) : m_calls(calls) {}
    void HandleLightEvent(int, LightEventParam*) override {
        ++m_calls;
        LightEventMgr::RemoveHandler(this);
        delete this;
    }

private:
    std::atomic<int>& m_calls;
};

TEST_F(RemoveHandlerTest, AHandlerMayRemoveAndDeleteItself) {
    LightEventMgr& mgr = StartedMgr();
    std::atomic<int> calls{0};
    auto* const handler = new SelfRemoving(calls);
    mgr.RegisterHandler(kEvent, handler);
    mgr.RegisterHandler(kEvent, handler);
    mgr.Push_Msg(kEvent, nullptr, 0);
    mgr.Push_Msg(kEvent, nullptr, 0);
    HandleEvents(mgr);
    EXPECT_EQ(1, calls);
}

TEST_F(RemoveHandlerTest, ACallThatHasRemovedItsHandlerIsStillWaitedForByOthers) {
    LightEventMgr& mgr = StartedMgr();
    std::atomic<bool> isRemoved{false};
    std::atomic<bool> isReleased{false};
    std::unique_ptr<Handler> handler;
    handler = std::make_unique<Handler>([&](int, LightEventParam*) {
        LightEventMgr::RemoveHandler(handler.get());
        isRemoved = true;
        WaitFor([&] { return isReleased.load(); });
    });
    mgr.RegisterHandler(kEvent, handler.get());
    mgr.Push_Msg(kEvent, nullptr, 0);
    ASSERT_TRUE(WaitFor([&] { return isRemoved.load(); }));

    const Elsewhere remover([&] { LightEventMgr::RemoveHandler(handler.get()); });
    EXPECT_FALSE(remover.Finishes(kAWhile));
    isReleased = true;
    EXPECT_TRUE(remover.Finishes());
}

TEST_F(RemoveHandlerTest, TwoWorkersThatAreInOneHandlerMayBothRemoveIt) {
    LightEventMgr& mgr = *LightEventMgr::Instance();
    std::atomic<int> inside{0};
    std::atomic<int> removed{0};
    std::unique_ptr<Handler> handler;
    handler = std::make_unique<Handler>([&](int, LightEventParam*) {
        ++inside;
        WaitFor([&] { return inside == 2; });
        LightEventMgr::RemoveHandler(handler.get());
        ++removed;
    });
    mgr.RegisterHandler(kEvent, handler.get());
    mgr.activate(THR_NEW_LWP | THR_JOINABLE, 2);
    mgr.Push_Msg(kEvent, nullptr, 0);
    mgr.Push_Msg(kEvent, nullptr, 0);
    EXPECT_TRUE(WaitFor([&] { return removed == 2; }));
    LightEventMgr::RemoveHandler(handler.get());
}

TEST_F(RemoveHandlerTest, TwoThreadsMayRemoveOneHandlerAtOnce) {
    LightEventMgr& mgr = StartedMgr();
    Blocking handler;
    mgr.RegisterHandler(kEvent, &handler);
    mgr.Push_Msg(kEvent, nullptr, 0);
    ASSERT_TRUE(handler.AwaitInside());

    const Elsewhere one([&] { LightEventMgr::RemoveHandler(&handler); });
    const Elsewhere another([&] { LightEventMgr::RemoveHandler(&handler); });
    EXPECT_FALSE(one.Finishes(kAWhile));
    EXPECT_FALSE(another.Finishes(kAWhile));
    handler.Release();
    EXPECT_TRUE(one.Finishes());
    EXPECT_TRUE(another.Finishes());
}

TEST_F(RemoveHandlerTest, AHandlerThatEndedItsThreadIsNotWaitedFor) {
    LightEventMgr& mgr = *LightEventMgr::Instance();
    Handler handler([](int, LightEventParam*) { pthread_exit(nullptr); });
    mgr.RegisterHandler(kEvent, &handler);
    mgr.Push_Msg(kEvent, nullptr, 0);
    std::thread([&] { mgr.process_msg(); }).join();
    LightEventMgr::RemoveHandler(&handler);
    EXPECT_THAT(mgr.find(kEvent), IsEmpty());
}

TEST_F(RemoveHandlerTest, AHandlerThatThrewIsNotWaitedFor) {
    LightEventMgr& mgr = *LightEventMgr::Instance();
    Handler handler([](int, LightEventParam*) { throw 1; });  // NOLINT(hicpp-exception-baseclass)
    mgr.RegisterHandler(kEvent, &handler);
    mgr.Push_Msg(kEvent, nullptr, 0);
    std::thread thread([&] {
        mgr.process_msg();
        mgr.process_msg();  // until the queue is closed
    });
    EXPECT_TRUE(WaitFor([&] { return mgr.msg_queue()->is_empty(); }));
    LightEventMgr::RemoveHandler(&handler);
    mgr.Fini();
    thread.join();
}

TEST_F(RemoveHandlerTest, WithoutAnEventManagerNothingHappensAndNoneIsMade) {
    Handler handler([](int, LightEventParam*) {});
    LightEventMgr::RemoveHandler(&handler);
    LightEventMgr::RemoveHandler(nullptr);
    EXPECT_FALSE(Peek::IsThere());

    LightEventMgr::Instance()->RegisterHandler(kEvent, &handler);
    LightEventMgr::Destroy();
    LightEventMgr::RemoveHandler(&handler);
    EXPECT_FALSE(Peek::IsThere());
}

TEST_F(RemoveHandlerTest, WaitsForACallOfAnEventManagerThatIsBeingDestroyed) {
    LightEventMgr& mgr = StartedMgr();
    Blocking handler;
    mgr.RegisterHandler(kEvent, &handler);
    mgr.Push_Msg(kEvent, nullptr, 0);
    ASSERT_TRUE(handler.AwaitInside());
    std::thread destroyer(LightEventMgr::Destroy);
    ASSERT_TRUE(WaitFor([] { return !Peek::IsThere(); }));

    const Elsewhere remover([&] { LightEventMgr::RemoveHandler(&handler); });
    EXPECT_FALSE(remover.Finishes(kAWhile));
    handler.Release();
    EXPECT_TRUE(remover.Finishes());
    destroyer.join();
}

TEST_F(RemoveHandlerTest, HandlersComeAndGoWhileEventManagersDo) {
    constexpr int kRounds = 5000;
    std::atomic<bool> isOver{false};
    std::thread destroyer([&] {
        while (!isOver) {
            LightEventMgr::Instance()->Init();
            for (int i = 0; i < 10; ++i) LightEventMgr::Instance()->Push_Msg(kEvent, nullptr, 0);
            LightEventMgr::Destroy();
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        // What it uses is gone after it was removed.
        auto count = std::make_unique<std::atomic<int>>(0);
        auto handler = std::make_unique<Handler>([&count](int, LightEventParam*) { ++*count; });
        LightEventMgr::Instance()->RegisterHandler(kEvent, handler.get());
        LightEventMgr::RemoveHandler(handler.get());
        count.reset();
        handler.reset();
    }
    isOver = true;
    destroyer.join();
}

TEST_F(RemoveHandlerTest, HandlersComeAndGoWhileEventsDo) {
    constexpr int kRounds = 20000;
    LightEventMgr& mgr = *LightEventMgr::Instance();
    mgr.activate(THR_NEW_LWP | THR_JOINABLE, 2);
    std::atomic<bool> isOver{false};
    std::thread poster([&] {
        while (!isOver) {
            if (mgr.msg_queue()->message_count() < 100) mgr.Push_Msg(kEvent, nullptr, 0);
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        auto count = std::make_unique<std::atomic<int>>(0);
        auto handler = std::make_unique<Handler>([&count](int, LightEventParam*) { ++*count; });
        mgr.RegisterHandler(kEvent, handler.get());
        LightEventMgr::RemoveHandler(handler.get());
        count.reset();
        handler.reset();
    }
    isOver = true;
    poster.join();
    EXPECT_THAT(mgr.find(kEvent), IsEmpty());
}

// Is in the table again and again; by one thread.
class ComingAndGoing : public LightEventHandler {
public:
    class Param : public LightEventParam {
    public:
        explicit Param(std::atomic<int>& late) : LightEventParam(true), m_late(late) {}
        ~Param() override {
            std::this_thread::yield();  // for who would not wait for it
            if (m_lastToSee != nullptr && m_lastToSee->m_isGone) ++m_late;
        }

        const ComingAndGoing* m_lastToSee = nullptr;

    private:
        std::atomic<int>& m_late;  // how many ended after the handler that saw them last was gone
    };

    void HandleLightEvent(int, LightEventParam* param) override { static_cast<Param*>(param)->m_lastToSee = this; }
    void ComeAndGo(LightEventMgr& mgr) {
        m_isGone = false;
        mgr.RegisterHandler(kEvent, this);
        std::this_thread::yield();
        LightEventMgr::RemoveHandler(this);
        m_isGone = true;
    }

private:
    std::atomic<bool> m_isGone{true};
};

TEST_F(RemoveHandlerTest, NoParameterOutlivesTheHandlerThatSawItLast) {
    constexpr int kRounds = 3000;
    LightEventMgr& mgr = StartedMgr();
    std::atomic<int> late{0};
    std::atomic<bool> isOver{false};
    std::thread poster([&] {
        while (!isOver) {
            if (mgr.msg_queue()->message_count() < 10) mgr.Push_Msg(kEvent, new ComingAndGoing::Param(late), 0);
        }
    });
    ComingAndGoing first;
    ComingAndGoing second;
    std::thread other([&] {
        while (!isOver) second.ComeAndGo(mgr);
    });
    for (int i = 0; i < kRounds; ++i) first.ComeAndGo(mgr);
    isOver = true;
    poster.join();
    other.join();
    HandleEvents(mgr);
    EXPECT_EQ(0, late);
}

TEST_F(RemoveHandlerTest, AnEventReachesAnyNumberOfHandlersInTheirOrder) {
    constexpr int kHandlers = 20;
    LightEventMgr& mgr = *LightEventMgr::Instance();
    std::vector<int> called;
    std::vector<std::unique_ptr<Handler>> handlers;
    for (int i = 0; i < kHandlers; ++i) {
        handlers.push_back(std::make_unique<Handler>([&, i](int, LightEventParam*) {
            called.push_back(i);
            // Some of those that the object keeps, and some for which it has to take memory.
            for (const int removed : {5, 12, 19}) LightEventMgr::RemoveHandler(handlers[std::size_t(removed)].get());
        }));
        mgr.RegisterHandler(kEvent, handlers.back().get());
    }
    mgr.Push_Msg(kEvent, nullptr, 0);
    mgr.process_msg();
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4, 6, 7, 8, 9, 10, 11, 13, 14, 15, 16, 17, 18}), called);
}

class OwnMgr : public LightEventMgr {
public:
    OwnMgr() = default;
    ~OwnMgr() override { ExitThreads(); }
};

TEST_F(RemoveHandlerTest, AHandlerThatIsStillInTheTableOfAnotherManagerIsCalledForTheNextEvent) {
    OwnMgr mgr;
    std::atomic<int> calls{0};
    Handler removed([&](int, LightEventParam*) { ++calls; });
    int events = 0;
    Handler removing([&](int, LightEventParam*) {
        if (++events == 2) LightEventMgr::RemoveHandler(&removed);
    });
    mgr.RegisterHandler(kEvent, &removing);
    mgr.RegisterHandler(kEvent, &removed);
    ASSERT_EQ(1, mgr.Init());
    for (int i = 0; i < 3; ++i) mgr.Push_Msg(kEvent, nullptr, 0);
    HandleEvents(mgr);
    EXPECT_EQ(2, calls);
}

TEST_F(RemoveHandlerTest, EachOfManyEventNumbersKeepsItsHandlers) {
    constexpr int kNumbers = 40;
    LightEventMgr& mgr = StartedMgr();
    test::Record<int> called;
    std::vector<std::unique_ptr<Handler>> handlers;
    for (int i = 0; i < kNumbers; ++i) {
        handlers.push_back(std::make_unique<Handler>([&, i](int eventId, LightEventParam*) {
            EXPECT_EQ(i, eventId);
            called.Add(i);
        }));
        mgr.RegisterHandler(i, handlers.back().get());
    }
    std::vector<int> posted;
    for (int i = 0; i < 3 * kNumbers; ++i) {
        // Neighbours differ by multiples of eight.
        posted.push_back((i * 8 + i % 3) % kNumbers);
        mgr.Push_Msg(posted.back(), nullptr, 0);
    }
    HandleEvents(mgr);
    EXPECT_EQ(posted, called.Get());
    mgr.Fini();
}

// ---- In a forked child ----

TEST_F(RemoveHandlerTest, AForkedChildWaitsForNobodyWhoIsNotThere) {
    LightEventMgr& mgr = StartedMgr();
    Blocking handler;
    mgr.RegisterHandler(kEvent, &handler);
    mgr.Push_Msg(kEvent, nullptr, 0);
    ASSERT_TRUE(handler.AwaitInside());

    EXPECT_EQ(0, test::InForkedChild([&] {
                  LightEventMgr::RemoveHandler(&handler);
                  return LightEventMgr::Instance()->find(kEvent).empty();
              }));
    EXPECT_EQ(1U, mgr.find(kEvent).size());
    handler.Release();
    LightEventMgr::RemoveHandler(&handler);
}

TEST_F(RemoveHandlerTest, AHandlerThatForksMayRemoveItselfInTheChild) {
    LightEventMgr& mgr = StartedMgr();
    std::atomic<int> status{-1};
    std::unique_ptr<Handler> handler;
    handler = std::make_unique<Handler>([&](int, LightEventParam*) {
        status = test::InForkedChild([&] {
            LightEventMgr::RemoveHandler(handler.get());
            return LightEventMgr::Instance()->find(kEvent).empty();
        });
    });
    mgr.RegisterHandler(kEvent, handler.get());
    mgr.Push_Msg(kEvent, nullptr, 0);
    EXPECT_TRUE(WaitFor([&] { return status != -1; }));
    EXPECT_EQ(0, status);
    LightEventMgr::RemoveHandler(handler.get());
}

TEST_F(RemoveHandlerTest, ForksMayComeWhileEventsAreDispatched) {
    constexpr int kForks = 50;
    LightEventMgr& mgr = StartedMgr();
    Handler handler([](int, LightEventParam*) {});
    mgr.RegisterHandler(kEvent, &handler);
    std::atomic<bool> isOver{false};
    std::thread poster([&] {
        while (!isOver) {
            if (mgr.msg_queue()->message_count() < 100) mgr.Push_Msg(kEvent, nullptr, 0);
        }
    });
    for (int i = 0; i < kForks; ++i) {
        EXPECT_EQ(0, test::InForkedChild([&] {
                      LightEventMgr::RemoveHandler(&handler);
                      return true;
                  }));
    }
    isOver = true;
    poster.join();
    LightEventMgr::RemoveHandler(&handler);
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
