// Bundles end their threads and are finalised.
#include <chrono>
#include <climits>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

#include "bundlemgrtest.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::BundleMgrTest;
using test::Elsewhere;
using test::FakeBundle;
using test::InProcessMgr;
using testing::ElementsAre;

TEST_F(BundleMgrTest, BundlesAreFinalisedByDescendingOrderAndThenByName) {
    Add("c", 5);
    Add("a", 1);
    Add("b", 5);
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("fini b", "fini c", "fini a"));
    EXPECT_THAT(Reported(), ElementsAre("3 \n========== Fini Bundle --- b ==========\n",
                                        "3 \n========== Fini Bundle --- c ==========\n",
                                        "3 \n========== Fini Bundle --- a ==========\n"));
}

TEST_F(BundleMgrTest, CoreBundlesAreFinalisedInTheirPlaceByOrder) {
    Add("zo_base_bundle", 3);
    Add("a", 5);
    Add("b", 1);
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("fini a", "fini zo_base_bundle", "fini b"));
}

TEST_F(BundleMgrTest, OrdersAtTheEndsOfTheRangeKeepTheirPlace) {
    Add("least", INT_MIN);
    Add("zero", 0);
    Add("most", INT_MAX);
    EXPECT_EQ(0, Mgr().InitAllBundles());
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("init least", "init zero", "init most", "fini most", "fini zero", "fini least"));
}

TEST_F(BundleMgrTest, EveryBundleIsFinalisedWhateverItsStateAndAsOftenAsAsked) {
    FakeBundle& bundle = Add("a");
    Mgr().FiniAllBundles();
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("fini a", "fini a"));
    EXPECT_EQ(BUNDLE_STATE_FINIED, bundle.GetState());
    EXPECT_EQ(&bundle, Mgr().GetBundle("a"));
}

TEST_F(BundleMgrTest, AnExceptionFromFiniDoesNotKeepTheOthersFromTheirs) {
    Add("a", 2).onFini = [] { throw 5; };
    Add("b", 1);
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("fini a", "fini b"));
    EXPECT_THAT(Reported(), ElementsAre("3 \n========== Fini Bundle --- a ==========\n",
                                        "1 Error: Fini of bundle a threw: an exception of unknown type\n",
                                        "3 \n========== Fini Bundle --- b ==========\n"));
    EXPECT_TRUE(TableIsFree());
}

TEST_F(BundleMgrTest, ABundleMayCallTheManagerWhileItIsFinalised) {
    BundleObject* found = nullptr;
    FakeBundle& bundle = Add("a");
    bundle.onFini = [&] { found = Mgr().GetBundle("a"); };
    Mgr().FiniAllBundles();
    EXPECT_EQ(&bundle, found);
}

double SecondsOf(const std::function<void()>& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST_F(BundleMgrTest, WaitingPausesForSevenSecondsFirst) {
    ASSERT_FALSE(g_isUnloadingCorba);
    const auto start = std::chrono::steady_clock::now();
    std::chrono::duration<double> atFirstWait{};
    Add("a").onWait = [&] { atFirstWait = std::chrono::steady_clock::now() - start; };
    Configure("Bundle=a\n");
    Mgr().WaitAllBundlesThreadExit();
    EXPECT_GE(atFirstWait.count(), 7.0);
    EXPECT_LT(atFirstWait.count(), 12.0);
}

TEST_F(BundleMgrTest, WithCorbaGoneThePauseIsFiveSecondsAndTheTableIsHeldThroughout) {
    Add("a");
    Add("b").onWait = [] { throw std::runtime_error("no patience"); };
    Add("c");
    Add("not configured");
    Configure("Bundle=a\nBundle=b\nBundle=missing\nBundle=c\nBundle=a\n");
    g_isUnloadingCorba = true;
    double seconds = 0;
    Elsewhere waiting([&] { seconds = SecondsOf([this] { Mgr().WaitAllBundlesThreadExit(); }); });

    // Until the call that has to wait.
    while (SecondsOf([this] { Mgr().GetBundle("a"); }) < 1.0) std::this_thread::yield();
    EXPECT_THAT(m_trace, ElementsAre("wait a", "wait c", "wait b", "wait a"));
    ASSERT_TRUE(waiting.Finishes());
    EXPECT_GE(seconds, 5.0);
    EXPECT_LT(seconds, 7.0);
    EXPECT_THAT(Reported(), ElementsAre("1 Error: WaitThreadExit of bundle b threw: no patience\n"));
    EXPECT_TRUE(TableIsFree());
}

TEST_F(BundleMgrTest, WaitingTakesItsListFromTheVirtualOperation) {
    g_isUnloadingCorba = true;
    InProcessMgr manager;
    FakeBundle bundle(m_trace, "a");
    manager.reversed = {nullptr, &bundle};
    manager.WaitAllBundlesThreadExit();
    EXPECT_THAT(m_trace, ElementsAre("wait a"));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
