// What the manager knows: its settings, its phase and its bundles.
#include <chrono>
#include <csignal>

#include <gmock/gmock.h>

#include <ace/Guard_T.h>
#include <ace/Static_Object_Lock.h>

#include "bundlemgrtest.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::BundleMgrTest;
using test::Elsewhere;
using test::FakeBundle;
using test::StaticGuard;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;

using BundleMgrDeathTest = BundleMgrTest;

TEST_F(BundleMgrTest, StatesAndPhasesHaveTheirNumbers) {
    EXPECT_EQ(0, BUNDLE_STATE_LOADED);
    EXPECT_EQ(1, BUNDLE_STATE_INITED);
    EXPECT_EQ(2, BUNDLE_STATE_FINIED);
    EXPECT_EQ(1, MGR_PHASE_INIT);
    EXPECT_EQ(2, MGR_PHASE_FINI);
}

TEST_F(BundleMgrTest, AFreshManagerIsInItsInitPhase) {
    EXPECT_EQ(MGR_PHASE_INIT, Mgr().GetMgrPhase());
    EXPECT_EQ(1024, Mgr().GetIntSetting());
    EXPECT_THAT(Mgr().GetLogProxyMgr(), NotNull());
    EXPECT_EQ(Mgr().GetLogProxyMgr(), Mgr().GetLogProxyMgr());
    EXPECT_THAT(Reversed(), IsEmpty());
}

TEST_F(BundleMgrTest, SettingAndPhaseAreKept) {
    Mgr().SetIntSetting(-3);
    Mgr().SetMgrPhase(77);
    EXPECT_EQ(-3, Mgr().GetIntSetting());
    EXPECT_EQ(77, Mgr().GetMgrPhase());
}

TEST_F(BundleMgrTest, InitAndFiniSetThePhaseFirst) {
    FakeBundle& bundle = Add("a");
    int atInit = 0;
    int atFini = 0;
    bundle.onInit = [&] { atInit = Mgr().GetMgrPhase(); };
    bundle.onFini = [&] { atFini = Mgr().GetMgrPhase(); };
    Mgr().SetMgrPhase(MGR_PHASE_FINI);
    Mgr().InitAllBundles();
    Mgr().FiniAllBundles();
    EXPECT_EQ(MGR_PHASE_INIT, atInit);
    EXPECT_EQ(MGR_PHASE_FINI, atFini);
    EXPECT_EQ(MGR_PHASE_FINI, Mgr().GetMgrPhase());
}

TEST_F(BundleMgrTest, ARegisteredBundleIsFoundUnderItsName) {
    FakeBundle& bundle = Add("a");
    EXPECT_EQ(&bundle, Mgr().GetBundle("a"));
    EXPECT_THAT(Mgr().GetBundle("A"), IsNull());
    EXPECT_THAT(Mgr().GetBundle(""), IsNull());
}

TEST_F(BundleMgrDeathTest, ANullBundleEndsTheProcess) {
    EXPECT_EXIT(Mgr().RegisterBundle(nullptr), testing::KilledBySignal(SIGABRT),
                "ACE_ASSERT: file bundlemgrimpl, line [0-9]+ assertion failed for 'pBundle != 0'");
}

TEST_F(BundleMgrDeathTest, ASecondBundleOfANameEndsTheProcess) {
    FakeBundle& bundle = Add("a");
    EXPECT_EXIT(Mgr().RegisterBundle(&bundle), testing::KilledBySignal(SIGABRT),
                "ACE_ASSERT: file bundlemgrimpl, line [0-9]+ assertion failed for "
                "'m_mapBundleTable\\.find\\(strName\\) == m_mapBundleTable\\.end\\(\\)'");
}

TEST_F(BundleMgrDeathTest, ABundleWhoseNameHasANullEntryEndsTheProcess) {
    Configure("Bundle=late\n");
    EXPECT_THAT(Reversed(), ElementsAre(IsNull()));
    EXPECT_EXIT(Add("late"), testing::KilledBySignal(SIGABRT),
                "ACE_ASSERT: file bundlemgrimpl, line [0-9]+ assertion failed for "
                "'m_mapBundleTable\\.find\\(strName\\) == m_mapBundleTable\\.end\\(\\)'");
}

TEST_F(BundleMgrTest, ABundleThatIsGoneCountsAsOneThatNeverRegistered) {
    Add("a");
    FakeBundle& b = Add("b");
    Configure("Bundle=a\nBundle=b\n");
    m_bundles.front().reset();
    EXPECT_THAT(Mgr().GetBundle("a"), IsNull());
    EXPECT_THAT(Mgr().GetBundleInterface("a"), IsNull());
    EXPECT_THAT(Reversed(), ElementsAre(&b, IsNull()));
    EXPECT_EQ(0, Mgr().InitAllBundles());
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("init b", "fini b"));
    FakeBundle& successor = Add("a");
    EXPECT_EQ(&successor, Mgr().GetBundle("a"));
}

TEST_F(BundleMgrTest, ReverseOrderIsThatOfTheConfigurationFromItsEnd) {
    FakeBundle& a = Add("a");
    FakeBundle& b = Add("b");
    Add("not configured");
    Configure("Bundle=a\nBundle=b\nBundle=missing\nBundle=a\n");
    FakeBundle& first = Add("first");
    std::list<BundleObject*> bundles{&first};
    Mgr().GetBundlesInReverseOrder(bundles);
    EXPECT_THAT(bundles, ElementsAre(&first, &a, IsNull(), &b, &a));
}

TEST_F(BundleMgrTest, TheInterfaceOfABundleIsItsOwn) {
    FakeBundle& bundle = Add("a");
    EXPECT_THAT(Mgr().GetBundleInterface("a"), IsNull());
    bundle.SetInterface();
    EXPECT_EQ(bundle.GetInterface(), Mgr().GetBundleInterface("a"));
    EXPECT_EQ("named", Mgr().GetBundleInterface("a")->GetDescription());
}

TEST_F(BundleMgrTest, AnUnknownBundleHasNoInterface) {
    Configure("Bundle=missing\n");
    EXPECT_THAT(Mgr().GetBundleInterface("unknown"), IsNull());
    EXPECT_THAT(Reversed(), ElementsAre(IsNull()));
    EXPECT_THAT(Mgr().GetBundleInterface("missing"), IsNull());
}

// The first record of the process creates the log under the static-object lock. A thread
// that did so while it holds the table would wait for one that holds these two in the
// other order.
TEST_F(BundleMgrTest, TheFirstRecordIsNotMadeUnderTheTableLock) {
    using Operation = std::function<void()>;
    Add("a");
    const std::vector<Operation> operations = {[this] { Mgr().LoadBundle("zo_test_missing"); },
                                               [this] { Mgr().InitAllBundles(); }, [this] { Mgr().FiniAllBundles(); }};
    for (const Operation& operation : operations) {
        LogProxyDebugInfoBufMgr::Destroy();
        auto staticLock = std::make_unique<StaticGuard>(*ACE_Static_Object_Lock::instance());
        const Elsewhere operating(operation);
        const bool blocked = !operating.Finishes(std::chrono::milliseconds(50));
        EXPECT_TRUE(blocked);  // on the log
        Mgr().GetBundle("a");  // this thread holds the static-object lock
        staticLock.reset();
        EXPECT_TRUE(operating.Finishes());
    }
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
