#include "bundle/livebundles.h"

#include <memory>

#include "bundletest.h"

namespace NS_BUNDLEMGR1 {
namespace {

TEST(LiveBundlesTest, HoldsEachBundleForItsLife) {
    EXPECT_FALSE(LiveBundles::Contains(nullptr));
    auto bundle = std::make_unique<test::TestBundle>();
    const test::TestBundle other;
    const BundleObject* const address = bundle.get();
    EXPECT_TRUE(LiveBundles::Contains(address));
    EXPECT_TRUE(LiveBundles::Contains(&other));
    bundle.reset();
    EXPECT_FALSE(LiveBundles::Contains(address));
    EXPECT_TRUE(LiveBundles::Contains(&other));
}

TEST(LiveBundlesTest, StrangersMayLeave) {
    const test::TestBundle bundle;
    LiveBundles::Leave(nullptr);
    LiveBundles::Leave(&bundle);
    LiveBundles::Leave(&bundle);
    EXPECT_FALSE(LiveBundles::Contains(&bundle));
    LiveBundles::Enter(&bundle);
    EXPECT_TRUE(LiveBundles::Contains(&bundle));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
