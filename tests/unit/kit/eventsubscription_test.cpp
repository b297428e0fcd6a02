#include <memory>
#include <thread>

#include <malloc.h>

#include <gmock/gmock.h>

#include <bundlemgr/kit.h>

#include "support/elsewhere.h"
#include "support/forkedchild.h"
#include "support/longcall.h"
#include "support/wait.h"
#include "unit/event/eventtest.h"

namespace {

using NS_BUNDLEMGR1::LightEventMgr;
using NS_BUNDLEMGR1::LightEventParam;
using std::chrono::milliseconds;
using test::Elsewhere;
using test::Peek;
using test::WaitFor;
using testing::IsEmpty;

constexpr int kEvent = 7;
constexpr int kOtherEvent = 8;
constexpr milliseconds kAWhile(50);  // in which what must not happen would

// A function in which the worker stays until it is let go.
class Blocking : public test::LongCall {
public:
    zo::EventSubscription::Function Function() {
        return [this](LightEventParam*) { Stay(); };
    }
};

class EventSubscriptionTest : public test::EventTest {
protected:
    static LightEventMgr& Mgr() { return *LightEventMgr::Instance(); }

    /// Posts an event without a parameter and handles it on this thread.
    static void Handle(int eventId) {
        Mgr().Push_Msg(eventId, nullptr, 0);
        Mgr().process_msg();
    }
};

TEST_F(EventSubscriptionTest, CallsItsFunctionWithTheParameterUntilItIsClosed) {
    std::vector<LightEventParam*> params;
    LightEventParam param(false);
    zo::EventSubscription subscription;
    subscription.Open(kEvent, [&](LightEventParam* given) { params.push_back(given); });
    Mgr().Push_Msg(kEvent, &param, 0);
    Mgr().process_msg();
    Handle(kEvent);
    Handle(kOtherEvent);
    subscription.Close();
    subscription.Close();
    Handle(kEvent);

    EXPECT_THAT(params, testing::ElementsAre(&param, nullptr));
    EXPECT_THAT(Mgr().find(kEvent), IsEmpty());
}

TEST_F(EventSubscriptionTest, ItsDestructorClosesIt) {
    int calls = 0;
    {
        zo::EventSubscription subscription;
        subscription.Open(kEvent, [&](LightEventParam*) { ++calls; });
    }
    Handle(kEvent);
    EXPECT_EQ(0, calls);
    EXPECT_THAT(Mgr().find(kEvent), IsEmpty());
}

TEST_F(EventSubscriptionTest, OpenedOnceMoreItCallsTheNewFunctionAlone) {
    int former = 0;
    int latter = 0;
    zo::EventSubscription subscription;
    subscription.Open(kEvent, [&](LightEventParam*) { ++former; });
    subscription.Open(kOtherEvent, [&](LightEventParam*) { ++latter; });
    Handle(kEvent);
    Handle(kOtherEvent);
    subscription.Close();
    subscription.Open(kOtherEvent, [&](LightEventParam*) { ++latter; });
    Handle(kOtherEvent);
    EXPECT_EQ(0, former);
    EXPECT_EQ(2, latter);
}

TEST_F(EventSubscriptionTest, AnEmptyFunctionIsPassedOver) {
    zo::EventSubscription subscription;
    subscription.Open(kEvent, nullptr);
    int calls = 0;
    zo::EventSubscription other;
    other.Open(kEvent, [&](LightEventParam*) { ++calls; });
    Handle(kEvent);
    EXPECT_EQ(1, calls);
}

TEST_F(EventSubscriptionTest, CloseDestroysTheFunction) {
    auto captured = std::make_shared<int>();
    zo::EventSubscription subscription;
    subscription.Open(kEvent, [captured](LightEventParam*) {});
    EXPECT_EQ(2, captured.use_count());
    subscription.Close();
    EXPECT_EQ(1, captured.use_count());
}

TEST_F(EventSubscriptionTest, CloseReturnsWhenTheCallThatIsUnderWayIsOver) {
    Mgr().Init();
    Blocking blocking;
    zo::EventSubscription subscription;
    subscription.Open(kEvent, blocking.Function());
    Mgr().Push_Msg(kEvent, nullptr, 0);
    ASSERT_TRUE(blocking.AwaitInside());

    const Elsewhere one([&] { subscription.Close(); });
    const Elsewhere another([&] { subscription.Close(); });
    EXPECT_FALSE(one.Finishes(kAWhile));
    EXPECT_FALSE(another.Finishes(kAWhile));
    blocking.Release();
    EXPECT_TRUE(one.Finishes());
    EXPECT_TRUE(another.Finishes());
    EXPECT_FALSE(blocking.IsInside());
}

TEST_F(EventSubscriptionTest, AFunctionMayCloseItsOwnSubscription) {
    int calls = 0;
    zo::EventSubscription subscription;
    subscription.Open(kEvent, [&](LightEventParam*) {
        ++calls;
        subscription.Close();
    });
    Handle(kEvent);
    Handle(kEvent);
    EXPECT_EQ(1, calls);
    EXPECT_THAT(Mgr().find(kEvent), IsEmpty());
}

TEST_F(EventSubscriptionTest, AFunctionThatHasClosedItsSubscriptionIsStillWaitedForByOthers) {
    Mgr().Init();
    std::atomic<bool> isClosed{false};
    std::atomic<bool> isReleased{false};
    zo::EventSubscription subscription;
    subscription.Open(kEvent, [&](LightEventParam*) {
        subscription.Close();
        isClosed = true;
        WaitFor([&] { return isReleased.load(); });
    });
    Mgr().Push_Msg(kEvent, nullptr, 0);
    ASSERT_TRUE(WaitFor([&] { return isClosed.load(); }));

    const Elsewhere closer([&] { subscription.Close(); });
    EXPECT_FALSE(closer.Finishes(kAWhile));
    isReleased = true;
    EXPECT_TRUE(closer.Finishes());
}

TEST_F(EventSubscriptionTest, AFunctionMayReopenItsOwnSubscription) {
    int former = 0;
    int latter = 0;
    zo::EventSubscription subscription;
    subscription.Open(kEvent, [&](LightEventParam*) {
        ++former;
        subscription.Open(kEvent, [&](LightEventParam*) { ++latter; });
        ++former;  // its own captures are still there
    });
    Handle(kEvent);
    Handle(kEvent);
    EXPECT_EQ(2, former);
    EXPECT_EQ(1, latter);
}

TEST_F(EventSubscriptionTest, AFunctionMayDestroyItsOwnSubscription) {
    auto subscription = std::make_unique<zo::EventSubscription>();
    auto captured = std::make_shared<int>(0);
    subscription->Open(kEvent, [&subscription, captured](LightEventParam*) {
        subscription.reset();
        ++*captured;
    });
    Handle(kEvent);
    Handle(kEvent);
    EXPECT_EQ(1, *captured);
    EXPECT_EQ(1, captured.use_count());
}

TEST_F(EventSubscriptionTest, TwoWorkersMayCloseItFromItsFunctionAtOnce) {
    std::atomic<int> inside{0};
    std::atomic<int> closed{0};
    zo::EventSubscription subscription;
    subscription.Open(kEvent, [&](LightEventParam*) {
        ++inside;
        WaitFor([&] { return inside == 2; });
        subscription.Close();
        ++closed;
    });
    Mgr().activate(THR_NEW_LWP | THR_JOINABLE, 2);
    Mgr().Push_Msg(kEvent, nullptr, 0);
    Mgr().Push_Msg(kEvent, nullptr, 0);
    EXPECT_TRUE(WaitFor([&] { return closed == 2; }));
}

TEST_F(EventSubscriptionTest, ClosingCreatesNoEventManager) {
    zo::EventSubscription never;
    never.Close();
    EXPECT_FALSE(Peek::IsThere());

    zo::EventSubscription subscription;
    subscription.Open(kEvent, [](LightEventParam*) {});
    LightEventMgr::Destroy();
    subscription.Close();
    EXPECT_FALSE(Peek::IsThere());
}

TEST_F(EventSubscriptionTest, MayBeClosedWhileTheEventManagerIsDestroyed) {
    Mgr().Init();
    Blocking blocking;
    zo::EventSubscription subscription;
    subscription.Open(kEvent, blocking.Function());
    Mgr().Push_Msg(kEvent, nullptr, 0);
    ASSERT_TRUE(blocking.AwaitInside());
    std::thread destroyer(LightEventMgr::Destroy);
    ASSERT_TRUE(WaitFor([] { return !Peek::IsThere(); }));

    const Elsewhere closer([&] { subscription.Close(); });
    EXPECT_FALSE(closer.Finishes(kAWhile));
    blocking.Release();
    EXPECT_TRUE(closer.Finishes());
    destroyer.join();
}

TEST_F(EventSubscriptionTest, OpenedAMillionTimesItTakesNoMoreMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr int kTimes = 20000;
#else
    constexpr int kTimes = 1000000;
#endif
    const auto openAndClose = [](int times) {
        zo::EventSubscription kept;
        for (int i = 0; i < times; ++i) {
            kept.Open(kEvent, [](LightEventParam*) {});
            zo::EventSubscription brief;
            brief.Open(kEvent, [](LightEventParam*) {});
        }
    };
    openAndClose(100);
    const std::size_t before = mallinfo2().uordblks;
    openAndClose(kTimes);
    EXPECT_LT(mallinfo2().uordblks, before + 10000);
    EXPECT_THAT(Mgr().find(kEvent), IsEmpty());
}

TEST_F(EventSubscriptionTest, SubscriptionsComeAndGoOnManyThreadsWhileEventsDo) {
    constexpr int kRounds = 2000;
    Mgr().Init();
    std::atomic<bool> isOver{false};
    std::thread poster([&] {
        while (!isOver) {
            if (Mgr().msg_queue()->message_count() < 100) Mgr().Push_Msg(kEvent, nullptr, 0);
        }
    });
    const auto comeAndGo = [] {
        for (int i = 0; i < kRounds; ++i) {
            auto count = std::make_unique<std::atomic<int>>(0);  // gone when the function must be
            zo::EventSubscription subscription;
            subscription.Open(kEvent, [&count](LightEventParam*) { ++*count; });
            subscription.Close();
            count.reset();
        }
    };
    std::thread another(comeAndGo);
    comeAndGo();
    another.join();
    isOver = true;
    poster.join();
}

TEST_F(EventSubscriptionTest, MayBeOpenedAndClosedByTwoThreadsAtOnce) {
    constexpr int kRounds = 2000;
    int calls = 0;
    zo::EventSubscription subscription;
    std::thread closer([&] {
        for (int i = 0; i < kRounds; ++i) subscription.Close();
    });
    for (int i = 0; i < kRounds; ++i) subscription.Open(kEvent, [&](LightEventParam*) { ++calls; });
    closer.join();
    subscription.Open(kEvent, [&](LightEventParam*) { ++calls; });
    Handle(kEvent);
    EXPECT_EQ(1, calls);
}

TEST_F(EventSubscriptionTest, MayBeClosedInAForkedChildWhileTheParentsWorkerIsInIt) {
    Mgr().Init();
    Blocking blocking;
    zo::EventSubscription subscription;
    subscription.Open(kEvent, blocking.Function());
    Mgr().Push_Msg(kEvent, nullptr, 0);
    ASSERT_TRUE(blocking.AwaitInside());

    EXPECT_EQ(0, test::InForkedChild([&] {
                  subscription.Close();
                  return Mgr().find(kEvent).empty();
              }));
    blocking.Release();
}

TEST_F(EventSubscriptionTest, ForksMayComeWhileSubscriptionsDo) {
    constexpr int kForks = 50;
    std::atomic<bool> isOver{false};
    zo::EventSubscription subscription;
    subscription.Open(kEvent, [](LightEventParam*) {});
    std::thread busy([&] {
        while (!isOver) {
            zo::EventSubscription other;
            other.Open(kEvent, [](LightEventParam*) {});
        }
    });
    for (int i = 0; i < kForks; ++i) {
        EXPECT_EQ(0, test::InForkedChild([&] {
                      subscription.Close();
                      return true;
                  }));
    }
    isOver = true;
    busy.join();
}

}  // namespace
