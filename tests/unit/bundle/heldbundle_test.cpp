#include "bundle/heldbundle.h"

#include <thread>

#include "bundletest.h"

namespace NS_BUNDLEMGR1 {
namespace {

using HeldBundleTest = test::BundleTest;  // "bundle" is registered there

TEST_F(HeldBundleTest, IsKnownWhileItIsHeld) {
    EXPECT_EQ(nullptr, HeldBundle::Named("bundle"));
    {
        const HeldBundle held(&m_bundle);
        EXPECT_EQ(&m_bundle, HeldBundle::Named("bundle"));
        EXPECT_EQ(nullptr, HeldBundle::Named("other"));
    }
    EXPECT_EQ(nullptr, HeldBundle::Named("bundle"));
}

TEST_F(HeldBundleTest, SeveralMayBeHeldAtOnce) {
    test::TestBundle other("other");
    BundleMgr::Instance()->RegisterBundle(&other);
    const HeldBundle outer(&m_bundle);
    const HeldBundle inner(&other);
    const HeldBundle again(&other);
    EXPECT_EQ(&m_bundle, HeldBundle::Named("bundle"));
    EXPECT_EQ(&other, HeldBundle::Named("other"));
}

TEST_F(HeldBundleTest, IsNotKnownToOtherThreads) {
    const HeldBundle held(&m_bundle);
    const BundleObject* seen = &m_bundle;
    std::thread([&seen] { seen = HeldBundle::Named("bundle"); }).join();
    EXPECT_EQ(nullptr, seen);
}

TEST_F(HeldBundleTest, IsNotFoundUnlessTheManagerKnowsIt) {
    test::TestBundle stranger("stranger");
    test::TestBundle namesake("bundle");
    const HeldBundle held(&stranger);
    const HeldBundle heldNamesake(&namesake);
    EXPECT_EQ(nullptr, HeldBundle::Named("stranger"));
    EXPECT_EQ(nullptr, HeldBundle::Named("bundle"));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
