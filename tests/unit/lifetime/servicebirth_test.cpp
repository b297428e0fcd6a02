#include "src/lifetime/servicebirth.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "livetest.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::At;
using test::MayCall;
using test::MayCallElsewhere;

TEST(ServiceBirthTest, WhatANestedBirthHasNotPublishedTheOuterOneDoes) {
    const ServiceBirth outer("fx_first", nullptr);
    {
        const ServiceBirth inner("fx_second", nullptr);
        LiveServices::Add(At(16));
    }
    EXPECT_EQ(1U, outer.Children().size());
    EXPECT_FALSE(MayCallElsewhere(At(16), CallPurpose::kUse));
    outer.Publish();
    EXPECT_TRUE(MayCallElsewhere(At(16), CallPurpose::kUse));
}

TEST(ServiceBirthTest, ASuccessorAtTheAddressOfAChildIsAChildOfItsOwn) {
    const ServiceBirth birth("fx_first", nullptr);
    LiveServices::Add(At(16));
    LiveServices::Remove(At(16));
    std::thread([] { LiveServices::Add(At(16)); }).join();
    EXPECT_TRUE(birth.Children().empty());
    const unsigned long id = LiveServices::Add(At(16));
    ASSERT_EQ(1U, birth.Children().size());
    EXPECT_EQ(id, birth.Children().front().id);
}

TEST(ServiceBirthTest, ANestedBirthPublishesOnlyItsOwn) {
    const ServiceBirth outer("fx_first", nullptr);
    LiveServices::Add(At(16));
    {
        const ServiceBirth inner("fx_second", nullptr);
        LiveServices::Add(At(32));
        inner.Publish();
    }
    EXPECT_FALSE(MayCallElsewhere(At(16), CallPurpose::kUse));
    EXPECT_TRUE(MayCallElsewhere(At(32), CallPurpose::kUse));
}

// Who finds one of them finds the others.
TEST(ServiceBirthTest, AllOfItsServicesAreReadyForOthersAtOnce) {
    constexpr std::uintptr_t kLast = 20000;
    for (int round = 0; round < 5; ++round) {
        const ServiceBirth birth("fx_first", nullptr);
        for (std::uintptr_t address = 1; address <= kLast; ++address) LiveServices::Add(At(address));
        std::atomic<bool> isLooking{false};
        std::atomic<int> missed{0};
        std::thread other([&isLooking, &missed] {
            const auto mayCall = [](std::uintptr_t address) { return MayCall(At(address), CallPurpose::kUse); };
            EXPECT_FALSE(mayCall(1));
            isLooking = true;
            EXPECT_TRUE(test::WaitFor([&] { return mayCall(1) || mayCall(kLast); }));
            for (const std::uintptr_t address : {std::uintptr_t{1}, kLast / 2, kLast}) missed += !mayCall(address);
        });
        EXPECT_TRUE(test::WaitFor([&isLooking] { return isLooking.load(); }));
        birth.Publish();
        other.join();
        EXPECT_EQ(0, missed);
        for (std::uintptr_t address = 1; address <= kLast; ++address) LiveServices::Remove(At(address));
    }
}

TEST(ServiceBirthTest, IsKnownToItsThread) {
    EXPECT_FALSE(ServiceBirth::Any());
    const ServiceBirth birth("fx_first", nullptr);
    EXPECT_TRUE(ServiceBirth::Any());
    std::thread([] { EXPECT_FALSE(ServiceBirth::Any()); }).join();
}

TEST(ServiceBirthTest, ItsChildrenAreThoseThatItHasNotPublished) {
    LiveServices::Add(At(8));
    const ServiceBirth birth("fx_first", nullptr);
    LiveServices::Add(At(16));
    const unsigned long id = LiveServices::Add(At(32));
    LiveServices::Remove(At(16));
    std::thread([] { LiveServices::Add(At(64)); }).join();
    LiveServices::Add(At(48));
    LiveServices::Retire(At(48));
    ASSERT_EQ(1U, birth.Children().size());
    EXPECT_EQ(At(32), birth.Children().front().object);
    EXPECT_EQ(id, birth.Children().front().id);
    birth.Publish();
    EXPECT_TRUE(birth.Children().empty());
}

TEST(ServiceBirthTest, AServiceThatIsOnlyConstructedIsEverybodys) {
    { const ServiceBirth over("fx_first", nullptr); }
    LiveServices::Add(At(16));
    EXPECT_TRUE(MayCallElsewhere(At(16), CallPurpose::kUse));
}

TEST(ServiceBirthTest, TheBundleIsKnownByNameOnItsThreadOnly) {
    auto* const bundle = reinterpret_cast<BundleObject*>(16);  // never looked into
    const ServiceBirth birth("fx_first", bundle);
    EXPECT_EQ(bundle, ServiceBirth::BundleNamed("fx_first"));
    EXPECT_EQ(nullptr, ServiceBirth::BundleNamed("fx_second"));
    std::thread([] { EXPECT_EQ(nullptr, ServiceBirth::BundleNamed("fx_first")); }).join();
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
