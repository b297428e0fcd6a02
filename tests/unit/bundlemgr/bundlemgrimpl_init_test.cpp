// Bundles are initialised: in which order, and until which of them fails.
#include <atomic>
#include <chrono>
#include <climits>
#include <stdexcept>

#include <gmock/gmock.h>

#include "bundlemgrtest.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::BundleMgrTest;
using test::CanBeDoneElsewhere;
using test::Elsewhere;
using test::FakeBundle;
using testing::ElementsAre;
using testing::IsNull;
using testing::NotNull;

TEST_F(BundleMgrTest, BundlesInitialiseByOrderAndThenByName) {
    Add("c", 5);
    Add("a", 1);
    Add("b", 5);
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, ElementsAre("init a", "init b", "init c"));
    EXPECT_THAT(Reported(), ElementsAre("3 \n========== Init Bundle --- [ a ] ==========\n",
                                        "3 \n========== Init Bundle --- [ b ] ==========\n",
                                        "3 \n========== Init Bundle --- [ c ] ==========\n"));
}

TEST_F(BundleMgrTest, CoreBundlesInitialiseFirst) {
    Add("a", INT_MIN);
    Add("zo_domain_bundle", 100);
    Add("zo_base_bundle", 200);
    Add("zo_core_bundle", -1);
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, ElementsAre("init zo_domain_bundle", "init zo_base_bundle", "init a", "init zo_core_bundle"));
}

TEST_F(BundleMgrTest, CoreBundlesOfOneOrderInitialiseByName) {
    Add("zo_domain_bundle", 1);
    Add("zo_base_bundle", 1);
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, ElementsAre("init zo_base_bundle", "init zo_domain_bundle"));
}

TEST_F(BundleMgrTest, AFailingCoreBundleStopsEverything) {
    FakeBundle& base = Add("zo_base_bundle", 1, 7);
    FakeBundle& domain = Add("zo_domain_bundle", 2);
    FakeBundle& other = Add("a");
    EXPECT_EQ(7, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, ElementsAre("init zo_base_bundle"));
    EXPECT_EQ(BUNDLE_STATE_LOADED, base.GetState());
    EXPECT_EQ(BUNDLE_STATE_LOADED, domain.GetState());
    EXPECT_EQ(BUNDLE_STATE_LOADED, other.GetState());
    EXPECT_THAT(Reported(), ElementsAre("3 \n========== Init Bundle --- [ zo_base_bundle ] ==========\n",
                                        "3 Error: Init Bundle zo_base_bundle failed! errcode=7\n"));
    EXPECT_TRUE(TableIsFree());
}

TEST_F(BundleMgrTest, AFailingBundleLeavesTheEarlierOnesInitialised) {
    FakeBundle& first = Add("a", 1);
    Add("b", 2, -9);
    FakeBundle& last = Add("c", 3);
    EXPECT_EQ(-9, Mgr().InitAllBundles());
    EXPECT_EQ(BUNDLE_STATE_INITED, first.GetState());
    EXPECT_EQ(BUNDLE_STATE_LOADED, last.GetState());
    EXPECT_THAT(m_trace, ElementsAre("init a", "init b"));
    EXPECT_EQ("3 Error: Init Bundle b failed! errcode=-9\n", Reported().back());
}

TEST_F(BundleMgrTest, OnlyLoadedBundlesInitialise) {
    Add("a");
    Add("zo_base_bundle").SetState(BUNDLE_STATE_FINIED);
    Add("b").SetState(-5);
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, ElementsAre("init a"));
    EXPECT_THAT(Reported(), ElementsAre("3 Error: Bundle zo_base_bundle is in state 2, Skip Init! \n",
                                        "3 Error: Bundle b is in state -5, Skip Init! \n",
                                        "3 \n========== Init Bundle --- [ a ] ==========\n",
                                        "3 Error: Bundle zo_base_bundle is in state 2, Skip Init! \n",
                                        "3 Error: Bundle a is in state 1, Skip Init! \n",
                                        "3 Error: Bundle b is in state -5, Skip Init! \n"));
}

TEST_F(BundleMgrTest, TheSecondGroupIsSelectedAfterTheFirstIsInitialised) {
    Add("zo_base_bundle").onInit = [this] { Add("made by base"); };
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, ElementsAre("init zo_base_bundle", "init made by base"));
}

TEST_F(BundleMgrTest, ABundleMayCallTheManagerWhileItInitialises) {
    FakeBundle& bundle = Add("a");
    BundleObject* found = nullptr;
    bundle.onInit = [&] {
        found = Mgr().GetBundle("a");
        Mgr().GetBundleInterface("a");
        Reversed();
    };
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_EQ(&bundle, found);
}

TEST_F(BundleMgrTest, OtherThreadsWaitForTheTableWhileABundleInitialisesButNotForThePhase) {
    std::atomic<bool> lookedUp{false};
    std::unique_ptr<Elsewhere> lookingUp;
    Add("a").onInit = [&] {
        lookingUp = std::make_unique<Elsewhere>([&] {
            Mgr().GetBundle("a");
            lookedUp = true;
        });
        EXPECT_TRUE(CanBeDoneElsewhere([this] { EXPECT_EQ(MGR_PHASE_INIT, Mgr().GetMgrPhase()); }));
        EXPECT_TRUE(CanBeDoneElsewhere([this] { Mgr().SetIntSetting(Mgr().GetIntSetting()); }));
        EXPECT_FALSE(lookingUp->Finishes(std::chrono::milliseconds(50)));
        EXPECT_FALSE(lookedUp);
    };
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_TRUE(lookingUp->Finishes());
}

TEST_F(BundleMgrTest, AnExceptionFromInitIsAFailure) {
    FakeBundle& bundle = Add("a", 1);
    FakeBundle& next = Add("b", 2);
    bundle.onInit = [] { throw std::runtime_error("no resources"); };
    EXPECT_EQ(-1, Mgr().InitAllBundles());
    EXPECT_EQ(BUNDLE_STATE_LOADED, bundle.GetState());
    EXPECT_EQ(BUNDLE_STATE_LOADED, next.GetState());
    EXPECT_TRUE(TableIsFree());
    EXPECT_THAT(Reported(), ElementsAre("3 \n========== Init Bundle --- [ a ] ==========\n",
                                        "1 Error: Init of bundle a threw: no resources\n",
                                        "3 Error: Init Bundle a failed! errcode=-1\n"));
}

TEST_F(BundleMgrTest, ABundleWithoutALibraryIsSkipped) {
    Add("a");
    Configure("Bundle=a\nBundle=zo_base_bundle\nBundle=missing\n");
    ASSERT_THAT(Reversed(), ElementsAre(IsNull(), IsNull(), NotNull()));
    EXPECT_EQ(0, Mgr().InitAllBundles());
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("init a", "fini a"));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
