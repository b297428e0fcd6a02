#include "src/lifetime/livebundles.h"

#include <memory>

#include "unit/bundle/bundletest.h"

namespace NS_BUNDLEMGR1 {
namespace {

TEST(LiveBundlesTest, KnowsEachBundleForItsLife) {
    EXPECT_EQ(0U, LiveBundles::IdOf(nullptr));
    auto bundle = std::make_unique<test::TestBundle>();
    const test::TestBundle other;
    const BundleObject* const address = bundle.get();
    EXPECT_NE(0U, LiveBundles::IdOf(address));
    EXPECT_NE(LiveBundles::IdOf(address), LiveBundles::IdOf(&other));
    bundle.reset();
    EXPECT_EQ(0U, LiveBundles::IdOf(address));
    EXPECT_NE(0U, LiveBundles::IdOf(&other));
}

TEST(LiveBundlesTest, ASuccessorAtTheSameAddressHasAnotherNumber) {
    alignas(test::TestBundle) unsigned char place[sizeof(test::TestBundle)];
    auto* const first = new (place) test::TestBundle;
    const unsigned long id = LiveBundles::IdOf(first);
    first->~TestBundle();
    auto* const second = new (place) test::TestBundle;
    EXPECT_NE(0U, LiveBundles::IdOf(second));
    EXPECT_NE(id, LiveBundles::IdOf(second));
    second->~TestBundle();
}

TEST(LiveBundlesTest, StrangersMayLeave) {
    const test::TestBundle bundle;
    LiveBundles::Remove(nullptr);
    LiveBundles::Remove(&bundle);
    LiveBundles::Remove(&bundle);
    EXPECT_EQ(0U, LiveBundles::IdOf(&bundle));
    LiveBundles::Add(&bundle);
    EXPECT_NE(0U, LiveBundles::IdOf(&bundle));
}

TEST(LiveBundlesTest, KnowsWhatTheManagerKnows) {
    auto bundle = std::make_unique<test::TestBundle>("first");
    test::TestBundle other("second");
    EXPECT_EQ(nullptr, LiveBundles::Registered("first"));
    BundleMgr::Instance()->RegisterBundle(bundle.get());
    BundleMgr::Instance()->RegisterBundle(&other);
    EXPECT_EQ(bundle.get(), LiveBundles::Registered("first"));
    EXPECT_EQ(nullptr, LiveBundles::Registered("First"));
    bundle.reset();
    EXPECT_EQ(nullptr, LiveBundles::Registered("first"));
    EXPECT_EQ(&other, LiveBundles::Registered("second"));
    BundleMgr::Destroy();
    EXPECT_EQ(nullptr, LiveBundles::Registered("second"));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
