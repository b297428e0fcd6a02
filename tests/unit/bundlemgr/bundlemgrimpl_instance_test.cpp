// The one bundle manager of a process: how it comes and how it goes.
#include <atomic>
#include <chrono>
#include <thread>

#include <gmock/gmock.h>

#include <ace/Guard_T.h>
#include <ace/Static_Object_Lock.h>

#include "bundlemgrtest.h"
#include "recordingmgr.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::BundleMgrTest;
using test::CanBeDoneElsewhere;
using test::Elsewhere;
using test::FakeBundle;
using test::RecordingMgr;
using test::StaticGuard;
using testing::IsNull;
using testing::NotNull;

TEST_F(BundleMgrTest, ThreadsGetOneInstance) {
    std::vector<BundleMgr*> seen(8, nullptr);
    std::atomic<bool> go{false};
    {
        std::list<Elsewhere> threads;
        for (BundleMgr*& slot : seen) {
            threads.emplace_back([&go, &slot] {
                while (!go) std::this_thread::yield();
                slot = BundleMgr::Instance();
            });
        }
        go = true;
    }
    ASSERT_THAT(seen.front(), NotNull());
    EXPECT_THAT(seen, testing::Each(seen.front()));
}

TEST_F(BundleMgrTest, DestroyWithoutAnInstanceDoesNothing) {
    BundleMgr::Destroy();
    BundleMgr::Destroy();
}

TEST_F(BundleMgrTest, AfterDestroyInstanceMakesAFreshManager) {
    Add("a");
    Mgr().SetIntSetting(7);
    BundleMgr::Destroy();
    EXPECT_THAT(Mgr().GetBundle("a"), IsNull());
    EXPECT_EQ(1024, Mgr().GetIntSetting());
}

TEST_F(BundleMgrTest, DestroyLeavesTheBundles) {
    FakeBundle& bundle = Add("a");
    BundleMgr::Destroy();
    EXPECT_EQ("a", bundle.GetName());
    EXPECT_EQ(BUNDLE_STATE_LOADED, bundle.GetState());
}

TEST_F(BundleMgrTest, DestroyWaitsForTheStaticObjectLock) {
    Mgr();
    std::atomic<bool> destroyed{false};
    auto guard = std::make_unique<StaticGuard>(*ACE_Static_Object_Lock::instance());
    const Elsewhere destroying([&destroyed] {
        BundleMgr::Destroy();
        destroyed = true;
    });
    EXPECT_FALSE(destroying.Finishes(std::chrono::milliseconds(50)));
    EXPECT_FALSE(destroyed);
    guard.reset();
    EXPECT_TRUE(destroying.Finishes());
    EXPECT_TRUE(destroyed);
}

TEST_F(BundleMgrTest, DestroyFromSeveralThreadsDestroysOnce) {
    Mgr();
    std::atomic<bool> go{false};
    std::list<Elsewhere> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&go] {
            while (!go) std::this_thread::yield();
            BundleMgr::Destroy();
        });
    }
    go = true;
    for (const Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
}

TEST_F(BundleMgrTest, DestroyRunsTheDestructorOfWhateverTheInstanceIs) {
    RecordingMgr::Become(new RecordingMgr);
    BundleMgr::Destroy();
    EXPECT_EQ("~", RecordingMgr::s_called);
    EXPECT_NE(nullptr, dynamic_cast<BundleMgrImpl*>(BundleMgr::Instance()));
}

TEST_F(BundleMgrTest, DestroySwallowsAnException) {
    RecordingMgr::Become(new RecordingMgr);
    RecordingMgr::s_throwing = true;
    BundleMgr::Destroy();
    EXPECT_EQ("~", RecordingMgr::s_called);
    EXPECT_NE(nullptr, dynamic_cast<BundleMgrImpl*>(BundleMgr::Instance()));
    EXPECT_TRUE(TableIsFree());
    EXPECT_TRUE(CanBeDoneElsewhere([] { const StaticGuard guard(*ACE_Static_Object_Lock::instance()); }));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
