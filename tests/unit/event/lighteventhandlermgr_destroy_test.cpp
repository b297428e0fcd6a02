// Who comes while the event manager is destroyed, and who comes after.
#include <memory>
#include <thread>

#include <gmock/gmock.h>

#include "slowmgr.h"
#include "support/elsewhere.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CountedParam;
using test::Elsewhere;
using test::Handler;
using test::kAWhile;
using test::Record;
using test::Signal;
using test::SlowMgr;
using test::WaitFor;
using testing::ElementsAre;
using testing::IsEmpty;

using LightEventMgrEnd = test::EventTest;

TEST_F(LightEventMgrEnd, AStalePointerDoesNothing) {
    std::atomic<int> deletions{0};
    Handler handler([](int, LightEventParam*) {});
    LightEventMgr* const stale = LightEventMgr::Instance();
    stale->RegisterHandler(1, &handler);
    LightEventMgr::Destroy();
    CountedParam param(true, deletions);

    EXPECT_EQ(0, stale->Push_Msg(1, &param, 0));
    EXPECT_EQ(0, stale->RegisterHandler(1, &handler));
    EXPECT_EQ(0, stale->UnRegisterHandler(1, &handler));
    EXPECT_THAT(stale->find(1), IsEmpty());
    EXPECT_EQ(0, stale->Init());
    stale->process_msg();
    stale->ExitThreads();
    stale->Fini();

    EXPECT_EQ(0, deletions);
    EXPECT_EQ("", Log());
}

TEST_F(LightEventMgrEnd, PostersSurviveAThousandEnds) {
    constexpr int kEnds = 1000;
    std::atomic<bool> stop{false};
    std::atomic<long> posted{0};
    std::vector<std::thread> posters;
    for (int i = 0; i < 3; ++i) {
        posters.emplace_back([&] {
            for (; !stop; ++posted) LightEventMgr::Instance()->Push_Msg(1, nullptr, 0);
        });
    }

    for (int i = 0; i < kEnds; ++i) {
        if (i % 2 == 0) LightEventMgr::Instance()->Init();
        const long before = posted;
        LightEventMgr::Destroy();
        ASSERT_TRUE(i % 10 != 0 || WaitFor([&] { return posted > before; }));
    }
    stop = true;
    for (std::thread& poster : posters) poster.join();
}

TEST_F(LightEventMgrEnd, EveryOperationSurvivesManyEnds) {
    constexpr int kEnds = 50;  // in the midst of nine threads, on few processors
    std::atomic<bool> stop{false};
    Handler handler([](int, LightEventParam*) { LightEventMgr::Instance()->Push_Msg(2, nullptr, 0); });
    const std::vector<std::function<void(LightEventMgr&)>> operations = {
        [](LightEventMgr& mgr) { mgr.Push_Msg(1, nullptr, 0); },
        [&](LightEventMgr& mgr) { mgr.RegisterHandler(1, &handler); },
        [&](LightEventMgr& mgr) { mgr.UnRegisterHandler(1, &handler); },
        [](LightEventMgr& mgr) { static_cast<void>(mgr.find(1)); },
        [](LightEventMgr& mgr) { mgr.Init(); },
        [](LightEventMgr& mgr) { mgr.process_msg(); },
        [](LightEventMgr& mgr) { mgr.ExitThreads(); },
        [](LightEventMgr& mgr) { mgr.Fini(); },
        [](LightEventMgr&) { LightEventMgr::Destroy(); }};
    std::vector<std::thread> users;
    for (const auto& operation : operations) {
        users.emplace_back([&] {
            while (!stop) operation(Mgr());
        });
    }

    const Elsewhere ending([&] {
        for (int i = 0; i < kEnds; ++i) LightEventMgr::Destroy();
        stop = true;
        LightEventMgr::Destroy();  // of whoever waits for an event
    });

    EXPECT_TRUE(ending.Finishes());
    for (std::thread& user : users) {
        Elsewhere joining([&] { user.join(); });
        // A manager that was made last may still have one who waits for an event.
        while (!joining.Finishes(std::chrono::milliseconds(1))) LightEventMgr::Destroy();
    }
    LightEventMgr::Destroy();
}

TEST_F(LightEventMgrEnd, ASecondDestroyReturnsWhenTheManagerIsGone) {
    Signal ending, release, gone;
    auto* const mgr = new SlowMgr;
    mgr->m_onEnd = [&] {
        ending.Give();
        EXPECT_TRUE(release.Wait());
        gone.Give();
    };
    mgr->Publish();
    const Elsewhere first([] { LightEventMgr::Destroy(); });
    ASSERT_TRUE(ending.Wait());

    const Elsewhere second([&] {
        LightEventMgr::Destroy();
        EXPECT_TRUE(gone.Given());
    });

    EXPECT_FALSE(second.Finishes(kAWhile));
    release.Give();
    EXPECT_TRUE(second.Finishes());
    EXPECT_TRUE(first.Finishes());
}

TEST_F(LightEventMgrEnd, WhoComesDuringDestroyStartsAnew) {
    Signal entered, release;
    Record<LightEventMgr*> seenByHandler;
    Handler blocking([&](int, LightEventParam*) {
        entered.Give();
        EXPECT_TRUE(release.Wait());
    });
    std::atomic<int> calls{0};
    Handler counting([&](int, LightEventParam*) { ++calls; });
    LightEventMgr* const dying = LightEventMgr::Instance();
    dying->RegisterHandler(1, &blocking);
    ASSERT_EQ(1, dying->Init());
    dying->Push_Msg(1, nullptr, 0);
    ASSERT_TRUE(entered.Wait());

    const Elsewhere ending([] { LightEventMgr::Destroy(); });
    ASSERT_TRUE(WaitFor([&] { return LightEventMgr::Instance() != dying; }));
    LightEventMgr& next = Mgr();
    next.RegisterHandler(1, &counting);
    ASSERT_EQ(1, next.Init());
    next.Push_Msg(1, nullptr, 0);

    EXPECT_TRUE(WaitFor([&] { return calls == 1; }));
    EXPECT_FALSE(ending.Finishes(std::chrono::milliseconds(0)));
    release.Give();
    EXPECT_TRUE(ending.Finishes());
    EXPECT_EQ(&next, LightEventMgr::Instance());
    EXPECT_THAT(next.find(1), ElementsAre(&counting));
    LightEventMgr::Destroy();
}

// Else a handler that only wants to unregister would bring a manager to life that nobody ends.
TEST_F(LightEventMgrEnd, AHandlerKeepsItsManagerDuringDestroy) {
    Signal entered;
    Record<LightEventMgr*> seen;
    LightEventMgr* const dying = LightEventMgr::Instance();
    Handler looking([&](int, LightEventParam*) {
        entered.Give();
        EXPECT_TRUE(WaitFor([&] { return IsClosed(*dying); }));
        seen.Add(LightEventMgr::Instance());
        LightEventMgr::Destroy();
        LightEventMgr::Instance()->UnRegisterHandler(1, &looking);
        LightEventMgr::Instance()->Fini();
        seen.Add(LightEventMgr::Instance());
    });
    dying->RegisterHandler(1, &looking);
    ASSERT_EQ(1, dying->Init());
    dying->Push_Msg(1, nullptr, 0);
    ASSERT_TRUE(entered.Wait());

    LightEventMgr::Destroy();

    EXPECT_THAT(seen.Get(), ElementsAre(dying, dying));
}

TEST_F(LightEventMgrEnd, FiniDuringDestroyReturnsWhenTheWorkerHasEnded) {
    Signal entered, release, left;
    Handler blocking([&](int, LightEventParam*) {
        entered.Give();
        EXPECT_TRUE(release.Wait());
        left.Give();
    });
    LightEventMgr* const dying = LightEventMgr::Instance();
    dying->RegisterHandler(1, &blocking);
    ASSERT_EQ(1, dying->Init());
    dying->Push_Msg(1, nullptr, 0);
    ASSERT_TRUE(entered.Wait());
    const Elsewhere ending([] { LightEventMgr::Destroy(); });
    ASSERT_TRUE(WaitFor([&] { return LightEventMgr::Instance() != dying; }));

    const Elsewhere stopping([&] {
        dying->Fini();
        EXPECT_TRUE(left.Given());
    });

    EXPECT_FALSE(stopping.Finishes(kAWhile));
    release.Give();
    EXPECT_TRUE(stopping.Finishes());
    EXPECT_TRUE(ending.Finishes());
}

TEST_F(LightEventMgrEnd, WhoWaitsForAnEventIsWokenByDestroy) {
    Signal waiting;
    LightEventMgr& mgr = Mgr();
    mgr.Push_Msg(1, nullptr, 0);
    const Elsewhere pumping([&] {
        mgr.process_msg();
        waiting.Give();
        mgr.process_msg();
    });
    ASSERT_TRUE(waiting.Wait());

    EXPECT_TRUE(test::CanBeDoneElsewhere([] { LightEventMgr::Destroy(); }));

    EXPECT_TRUE(pumping.Finishes());
}

TEST_F(LightEventMgrEnd, AfterTheOneInstanceWasDeletedInstanceMakesAnother) {
    auto mgr = std::make_unique<SlowMgr>();
    mgr->Publish();
    ASSERT_EQ(mgr.get(), LightEventMgr::Instance());

    mgr.reset();

    LightEventMgr::Destroy();
    EXPECT_THAT(Mgr().find(1), IsEmpty());
}

TEST_F(LightEventMgrEnd, AHandlerMayDestroyTheManagerThatTheHostPumps) {
    std::atomic<int> deletions{0};
    int calls = 0;
    Handler destroying([&](int, LightEventParam*) {
        LightEventMgr::Destroy();
        ++calls;
    });
    Handler next([&](int, LightEventParam*) { ++calls; });
    Mgr().RegisterHandler(1, &destroying);
    Mgr().RegisterHandler(1, &next);
    Mgr().Push_Msg(1, new CountedParam(true, deletions), 0);

    Mgr().process_msg();

    EXPECT_EQ(2, calls);
    EXPECT_EQ(1, deletions);
    EXPECT_THAT(Mgr().find(1), IsEmpty());
}

TEST_F(LightEventMgrEnd, DestroyWaitsForNobodyWhoUsesAnotherManager) {
    SlowMgr other;
    Signal entered, stopping, done;
    Handler destroying([&](int, LightEventParam*) {
        entered.Give();
        EXPECT_TRUE(stopping.Wait());
        EXPECT_TRUE(WaitFor([&] { return IsClosed(other); }));
        LightEventMgr::Destroy();
        done.Give();
    });
    other.RegisterHandler(1, &destroying);
    ASSERT_EQ(1, other.Init());
    other.Push_Msg(1, nullptr, 0);
    Mgr();
    ASSERT_TRUE(entered.Wait());  // or the end of the other drops the event

    const Elsewhere waiting([&] {
        stopping.Give();
        other.Fini();
    });

    EXPECT_TRUE(done.Wait());
    EXPECT_TRUE(waiting.Finishes());
}

TEST_F(LightEventMgrEnd, DestroyWaitsForNoIdleWorkerOfAnotherManager) {
    SlowMgr other;
    ASSERT_EQ(1, other.Init());
    ASSERT_EQ(1, Mgr().Init());

    EXPECT_TRUE(test::CanBeDoneElsewhere([] { LightEventMgr::Destroy(); }));

    EXPECT_EQ(1U, other.thr_count());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
