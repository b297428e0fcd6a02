// The host ends while bundles still load services: nothing starts after the end.
#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>

#include <gmock/gmock.h>

#include <ace/Guard_T.h>
#include <ace/Service_Repository.h>

#include "integration/threadstest.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::At;
using test::CanBeDoneElsewhere;
using test::Done;
using test::Elsewhere;
using test::HookedBundle;
using test::IsDone;
using test::IsInRepository;
using test::ThreadsTest;
using test::WaitFor;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST_F(ThreadsTest, ALoadingThatWaitedForItsTurnStartsNothingAfterTheEnd) {
    auto turn = std::make_unique<ACE_Guard<ACE_Recursive_Thread_Mutex>>(ACE_Service_Repository::instance()->lock());
    int result = 0;
    std::atomic<bool> isLoading{false};
    const Elsewhere loader([&] {
        isLoading = true;
        result = m_a.LoadAllServiceObjects();
    });
    ASSERT_TRUE(WaitFor([&] { return isLoading.load(); }));
    const Elsewhere end([] { Mgr().FiniAllBundles(); });
    ASSERT_TRUE(WaitFor([] { return Mgr().GetMgrPhase() == MGR_PHASE_FINI; }));

    turn.reset();

    EXPECT_TRUE(loader.Finishes());
    EXPECT_TRUE(end.Finishes());
    EXPECT_EQ(-1, result);
    EXPECT_THAT(Done(), IsEmpty());
    EXPECT_THAT(Log(), Not(HasSubstr("Init Failed")));
    EXPECT_THAT(Log(), Not(HasSubstr("Init Service")));
}

TEST_F(ThreadsTest, NoServiceIsLeftWhenBundlesLoadOnThreadsOfTheirOwn) {
    for (int round = 0; round < 200; ++round) {
        m_a.SetState(BUNDLE_STATE_LOADED);
        m_b.SetState(BUNDLE_STATE_LOADED);
        Mgr().SetMgrPhase(MGR_PHASE_INIT);
        std::atomic<int> ready{0};
        std::list<Elsewhere> loaders;
        for (HookedBundle* const bundle : {&m_a, &m_b}) {
            loaders.emplace_back([bundle, &ready] {
                ++ready;
                bundle->LoadAllServiceObjects();
            });
        }
        WaitFor([&ready] { return ready == 2; });
        const std::size_t steps = static_cast<std::size_t>(round % 10);
        WaitFor([steps] { return Done().size() >= steps; }, std::chrono::milliseconds(5));

        ASSERT_TRUE(CanBeDoneElsewhere([] { Mgr().FiniAllBundles(); }));
        for (const Elsewhere& loader : loaders) ASSERT_TRUE(loader.Finishes());

        for (const char* const service : {"a1", "a2", "b1", "b2"}) ASSERT_FALSE(IsInRepository(service)) << round;
        for (const char* const service : {"a1", "a2", "b1", "b2"}) {
            (service[0] == 'a' ? m_a : m_b).RemoveServiceObject(service);  // the names stay in the table, as ever
        }
        test::ForgetDone();
    }
    EXPECT_THAT(Log(), Not(HasSubstr("Init Failed")));
}

TEST_F(ThreadsTest, AnInitialisationThatMeetsTheEndStopsAndSaysSo) {
    At("a1 init", [] { return WaitFor([] { return Mgr().GetMgrPhase() == MGR_PHASE_FINI; }) ? 0 : 1; });
    int result = 0;
    const Elsewhere init([&] { result = Mgr().InitAllBundles(); });
    ASSERT_TRUE(WaitFor([] { return IsDone("a1 init"); }));

    EXPECT_TRUE(CanBeDoneElsewhere([] { Mgr().FiniAllBundles(); }));

    EXPECT_TRUE(init.Finishes());
    EXPECT_EQ(-1, result);
    EXPECT_THAT(Done(), ElementsAre("a1 ctor", "a1 init", "a1 fini", "a1 dtor"));
    EXPECT_THAT(Log(), Not(HasSubstr("Init Failed")));
    EXPECT_THAT(Log(), Not(HasSubstr("Init Bundle --- [ fx_hooked_b ]")));
}

TEST_F(ThreadsTest, AnInitialisationDoesNotBeginWhileTheEndIsUnderWay) {
    std::atomic<bool> isEnding{false};
    std::atomic<bool> goOn{false};
    m_a.onFini = [&] {
        isEnding = true;
        WaitFor([&goOn] { return goOn.load(); });
    };
    const Elsewhere end([] { Mgr().FiniAllBundles(); });
    ASSERT_TRUE(WaitFor([&] { return isEnding.load(); }));

    EXPECT_TRUE(CanBeDoneElsewhere([] { EXPECT_EQ(-1, Mgr().InitAllBundles()); }));

    EXPECT_EQ(MGR_PHASE_FINI, Mgr().GetMgrPhase());
    goOn = true;
    EXPECT_TRUE(end.Finishes());
    EXPECT_THAT(Done(), IsEmpty());
}

TEST_F(ThreadsTest, AnInitialisationThatIsOverWhenTheEndComesSaysSo) {
    At("b2 init", [] { return WaitFor([] { return Mgr().GetMgrPhase() == MGR_PHASE_FINI; }) ? 0 : 1; });
    int result = 0;
    const Elsewhere init([&] { result = Mgr().InitAllBundles(); });
    ASSERT_TRUE(WaitFor([] { return IsDone("b2 init"); }));

    Mgr().FiniAllBundles();

    EXPECT_TRUE(init.Finishes());
    EXPECT_EQ(-1, result);
}

TEST_F(ThreadsTest, TwoInitialisationsDoNotInitialiseABundleTwice) {
    std::atomic<bool> goOn{false};
    At("b1 init", [&goOn] { return WaitFor([&goOn] { return goOn.load(); }) ? 0 : 1; });
    const Elsewhere loader([this] { m_b.LoadAllServiceObjects(); });  // has the configurator
    ASSERT_TRUE(WaitFor([] { return IsDone("b1 init"); }));
    std::atomic<int> inits{0};
    m_a.onInit = [&inits] { ++inits; };
    m_dir.Write("etc/oss_cfg/nbi/conf/fx_hooked_b/svc.cfg", "");
    const Elsewhere first([] { Mgr().InitAllBundles(); });
    ASSERT_TRUE(WaitFor([&inits] { return inits == 1; }));
    const Elsewhere second([] { Mgr().InitAllBundles(); });

    EXPECT_FALSE(second.Finishes(std::chrono::milliseconds(20)));
    goOn = true;

    EXPECT_TRUE(loader.Finishes());
    EXPECT_TRUE(first.Finishes());
    EXPECT_TRUE(second.Finishes());
    EXPECT_EQ(1, inits);
}

TEST_F(ThreadsTest, ABundleIsNotFinalisedBeforeItsInitHasStopped) {
    std::atomic<bool> goOn{false};
    At("b1 init", [&goOn] { return WaitFor([&goOn] { return goOn.load(); }) ? 0 : 1; });
    const Elsewhere loader([this] { m_b.LoadAllServiceObjects(); });  // has the configurator
    ASSERT_TRUE(WaitFor([] { return IsDone("b1 init"); }));
    std::atomic<bool> inInit{false};
    std::atomic<bool> overtook{false};
    m_a.onInit = [&inInit] { inInit = true; };
    m_a.afterLoading = [&inInit] { inInit = false; };
    m_a.onFini = [&inInit, &overtook] { overtook = inInit.load(); };
    int result = 0;
    const Elsewhere init([&] { result = Mgr().InitAllBundles(); });
    ASSERT_TRUE(WaitFor([&inInit] { return inInit.load(); }));
    const Elsewhere end([] { Mgr().FiniAllBundles(); });

    EXPECT_FALSE(end.Finishes(std::chrono::milliseconds(20)));
    goOn = true;

    EXPECT_TRUE(loader.Finishes());
    EXPECT_TRUE(init.Finishes());
    EXPECT_TRUE(end.Finishes());
    EXPECT_EQ(-1, result);
    EXPECT_FALSE(overtook);
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
