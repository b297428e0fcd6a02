// Whom the event manager waits for when it ends.
#include <memory>
#include <thread>
#include <utility>

#include <gmock/gmock.h>

#include <ace/Init_ACE.h>
#include <ace/Thread_Manager.h>

#include "slowmgr.h"
#include "support/elsewhere.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::Elsewhere;
using test::Handler;
using test::kAWhile;
using test::Signal;
using test::SlowMgr;
using test::WaitFor;

class LightEventMgrEnd : public test::EventTest {
protected:
    /// Starts the manager, whose worker is then held up; its end waits for that.
    static void ExpectThatItsWorkerIsWaitedFor(std::unique_ptr<SlowMgr> mgr) {
        Signal entered, release;
        mgr->m_inWorker = [&] {
            entered.Give();
            EXPECT_TRUE(release.Wait());
        };
        EXPECT_EQ(1, mgr->Init());
        ASSERT_TRUE(entered.Wait());
        const Elsewhere ending([&] { mgr.reset(); });

        EXPECT_FALSE(ending.Finishes(kAWhile));
        release.Give();
        EXPECT_TRUE(ending.Finishes());
    }
};

TEST_F(LightEventMgrEnd, AWorkerThatStartsDuringFiniIsWaitedForLater) {
    auto mgr = std::make_unique<SlowMgr>();
    SlowMgr* const starting = mgr.get();
    mgr->m_beforeStart = [starting] { EXPECT_TRUE(test::CanBeDoneElsewhere([starting] { starting->Fini(); })); };
    ExpectThatItsWorkerIsWaitedFor(std::move(mgr));
}

TEST_F(LightEventMgrEnd, AWorkerThatStartsAfterFiniIsWaitedFor) {
    auto mgr = std::make_unique<SlowMgr>();
    mgr->Fini();
    ExpectThatItsWorkerIsWaitedFor(std::move(mgr));
}

TEST_F(LightEventMgrEnd, WorkersThatAceStartedAreWaitedFor) {
    constexpr int kWorkers = 3;
    for (const long kind : {THR_JOINABLE, THR_DETACHED}) {
        std::atomic<int> entered{0};
        Signal release;
        Handler blocking([&](int, LightEventParam*) {
            ++entered;
            EXPECT_TRUE(release.Wait());
        });
        Mgr().RegisterHandler(1, &blocking);
        ASSERT_EQ(0, Mgr().activate(THR_NEW_LWP | kind, kWorkers));
        for (int i = 0; i < kWorkers; ++i) Mgr().Push_Msg(1, nullptr, 0);
        ASSERT_TRUE(WaitFor([&] { return entered == kWorkers; }));
        const Elsewhere ending([] { LightEventMgr::Destroy(); });

        EXPECT_FALSE(ending.Finishes(kAWhile));
        release.Give();
        EXPECT_TRUE(ending.Finishes());
    }
}

TEST_F(LightEventMgrEnd, OfSeveralWorkersOneMayStopAll) {
    std::atomic<int> stopped{0};
    Handler stopping([&](int, LightEventParam*) {
        LightEventMgr::Destroy();
        ++stopped;
    });
    Mgr().RegisterHandler(1, &stopping);
    ASSERT_EQ(0, Mgr().activate(THR_NEW_LWP | THR_JOINABLE, 3));

    Mgr().Push_Msg(1, nullptr, 0);

    EXPECT_TRUE(WaitFor([&] { return stopped == 1 && Mgr().thr_count() == 0; }));
    LightEventMgr::Destroy();
}

TEST_F(LightEventMgrEnd, InitAndFiniMayMeetInAnyOrder) {
    for (int round = 0; round < 300; ++round) {
        LightEventMgr& mgr = Mgr();
        std::thread starting([&] { mgr.Init(); });
        std::thread stopping([&] { mgr.Fini(); });
        starting.join();
        stopping.join();

        LightEventMgr::Destroy();

        EXPECT_EQ(0, ACE_Thread_Manager::instance()->num_threads_in_task(&mgr));
    }
}

// Frees ACE's thread manager; a sanitizer tells who still touches it.
TEST(LightEventMgrEndDeathTest, NobodyLooksForAWorkerOnceAceIsFinalised) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            ACE::init();
            LightEventMgr::Instance()->Init();
            LightEventMgr::Instance()->Fini();
            ACE::fini();
            LightEventMgr::Instance()->ExitThreads();
            LightEventMgr::Destroy();
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
