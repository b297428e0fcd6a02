#include "bundle/liveservices.h"

#include <cstdint>
#include <list>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "bundle/nestedlock.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

const ServiceObjectBase* At(std::uintptr_t address) {
    return reinterpret_cast<const ServiceObjectBase*>(address);  // never looked into
}

TEST(LiveServicesTest, NobodyIsLiveAtFirst) {
    EXPECT_EQ(0U, LiveServices::IdOf(At(16)));
    EXPECT_EQ(0U, LiveServices::IdOf(nullptr));
    LiveServices::Leave(At(16));
    LiveServices::Leave(nullptr, 0);
}

TEST(LiveServicesTest, EachObjectHasANumberOfItsOwn) {
    const unsigned long first = LiveServices::Enter(At(16));
    const unsigned long second = LiveServices::Enter(At(32));
    EXPECT_NE(0U, first);
    EXPECT_NE(0U, second);
    EXPECT_NE(first, second);
    EXPECT_EQ(first, LiveServices::IdOf(At(16)));
    EXPECT_EQ(second, LiveServices::IdOf(At(32)));
}

TEST(LiveServicesTest, AnotherObjectAtTheSameAddressHasAnotherNumber) {
    const unsigned long first = LiveServices::Enter(At(16));
    LiveServices::Leave(At(16));
    EXPECT_EQ(0U, LiveServices::IdOf(At(16)));
    EXPECT_NE(first, LiveServices::Enter(At(16)));
}

TEST(LiveServicesTest, LeavingByNumberSparesTheSuccessor) {
    const unsigned long first = LiveServices::Enter(At(16));
    const unsigned long second = LiveServices::Enter(At(16));
    LiveServices::Leave(At(16), first);
    EXPECT_EQ(second, LiveServices::IdOf(At(16)));
    LiveServices::Leave(At(16), second);
    EXPECT_EQ(0U, LiveServices::IdOf(At(16)));
}

bool MayCall(const ServiceObjectBase* service, ServiceCall::Purpose purpose, unsigned long id = 0) {
    return static_cast<bool>(ServiceCall(service, id, purpose));
}

bool MayCallElsewhere(const ServiceObjectBase* service, ServiceCall::Purpose purpose) {
    bool may = false;
    std::thread([&] { may = MayCall(service, purpose); }).join();
    return may;
}

TEST(ServiceCallTest, IsForLiveServicesOfTheRightNumber) {
    EXPECT_FALSE(MayCall(At(16), ServiceCall::kUse));
    const unsigned long id = LiveServices::Enter(At(16));
    EXPECT_TRUE(MayCall(At(16), ServiceCall::kUse));
    EXPECT_TRUE(MayCall(At(16), ServiceCall::kEndThreads, id));
    EXPECT_FALSE(MayCall(At(16), ServiceCall::kUse, id + 1));
    LiveServices::Leave(At(16));
    EXPECT_FALSE(MayCall(At(16), ServiceCall::kEndThreads, id));
}

TEST(ServiceCallTest, IsKnownToItsThread) {
    LiveServices::Enter(At(16));
    EXPECT_FALSE(InService::IsActive());
    {
        const ServiceCall call(At(16), 0, ServiceCall::kUse);
        EXPECT_TRUE(InService::IsActive());
        std::thread([] { EXPECT_FALSE(InService::IsActive()); }).join();
    }
    EXPECT_FALSE(InService::IsActive());
}

TEST(ServiceCallTest, AServiceThatIsBeingMadeIsItsMakersUntilItIsPublished) {
    const ServiceBirth birth("fx_first", nullptr);
    LiveServices::Enter(At(16));
    EXPECT_TRUE(MayCall(At(16), ServiceCall::kUse));
    EXPECT_FALSE(MayCallElsewhere(At(16), ServiceCall::kUse));
    EXPECT_FALSE(MayCallElsewhere(At(16), ServiceCall::kEndThreads));
    birth.Publish();
    EXPECT_TRUE(MayCallElsewhere(At(16), ServiceCall::kUse));
}

TEST(ServiceCallTest, OnceConstructedItMayBeToldToEndItsThreads) {
    const ServiceBirth birth("fx_first", nullptr);
    LiveServices::Enter(At(16));
    LiveServices::MarkMade(At(16));
    EXPECT_TRUE(MayCallElsewhere(At(16), ServiceCall::kEndThreads));
    EXPECT_FALSE(MayCallElsewhere(At(16), ServiceCall::kUse));
}

TEST(ServiceCallTest, NobodyCallsWhatDidNotInitialise) {
    for (const bool isMade : {true, false}) {
        const ServiceBirth birth("fx_first", nullptr);
        const unsigned long id = LiveServices::Enter(At(16));
        if (isMade) LiveServices::MarkMade(At(16));
        LiveServices::GiveUp(At(16), id);
        birth.Publish();
        EXPECT_FALSE(MayCall(At(16), ServiceCall::kEndThreads));
        EXPECT_FALSE(MayCallElsewhere(At(16), ServiceCall::kUse));
    }
}

TEST(ServiceCallTest, WhoEndsAServiceIsTheOnlyOneToCallIt) {
    LiveServices::Enter(At(16));
    LiveServices::MarkMade(At(16));
    LiveServices::Retire(At(16));
    EXPECT_TRUE(MayCall(At(16), ServiceCall::kUse));
    EXPECT_FALSE(MayCallElsewhere(At(16), ServiceCall::kUse));
    EXPECT_FALSE(MayCallElsewhere(At(16), ServiceCall::kEndThreads));
}

TEST(ServiceCallTest, KeepsAServiceFromBeingEnded) {
    LiveServices::Enter(At(16));
    auto call = std::make_unique<ServiceCall>(At(16), 0, ServiceCall::kUse);
    auto another = std::make_unique<ServiceCall>(At(16), 0, ServiceCall::kUse);
    ACE_Recursive_Thread_Mutex lock;
    const test::Elsewhere ending([&lock] {
        const ServiceCall ownCalls(At(16), 0, ServiceCall::kUse);  // is no obstacle
        const NestedGuard held(lock, LockRank::kBundle);
        LiveServices::Retire(At(16));
    });
    EXPECT_TRUE(test::WaitFor([] { return !MayCall(At(16), ServiceCall::kUse); }));
    { const NestedGuard free(lock, LockRank::kBundle); }  // is let go of meanwhile
    EXPECT_FALSE(ending.Finishes(std::chrono::milliseconds(20)));
    call.reset();
    EXPECT_FALSE(ending.Finishes(std::chrono::milliseconds(20)));
    another.reset();
    EXPECT_TRUE(ending.Finishes());
}

TEST(LiveServicesTest, KnowsWhatAnotherThreadIsEnding) {
    const unsigned long id = LiveServices::Enter(At(16));
    EXPECT_FALSE(LiveServices::IsRetiredElsewhere(At(16), id));
    std::thread([] { LiveServices::Retire(At(16)); }).join();
    EXPECT_TRUE(LiveServices::IsRetiredElsewhere(At(16), id));
    EXPECT_FALSE(LiveServices::IsRetiredElsewhere(At(16), id + 1));
    LiveServices::Retire(At(16));
    EXPECT_FALSE(LiveServices::IsRetiredElsewhere(At(16), id));
}

TEST(LiveServicesTest, ItsEndCanBeAwaited) {
    const unsigned long id = LiveServices::Enter(At(16));
    const test::Elsewhere waiting([id] { LiveServices::AwaitEnd(At(16), id); });
    EXPECT_FALSE(waiting.Finishes(std::chrono::milliseconds(20)));
    LiveServices::Enter(At(16));  // a successor
    LiveServices::Leave(At(32));
    LiveServices::Enter(At(32));
    LiveServices::Leave(At(32));
    EXPECT_TRUE(waiting.Finishes());
    LiveServices::AwaitEnd(At(16), id);
}

TEST(LiveServicesTest, OnlyWhatTheConfiguratorMadeByAPlainFactoryMayVanish) {
    LiveServices::Enter(At(8));
    const ServiceBirth birth("fx_first", nullptr);
    LiveServices::Enter(At(16));
    LiveServices::Enter(At(32));
    LiveServices::MarkMade(At(32));
    EXPECT_FALSE(LiveServices::MayVanish(At(8)));
    EXPECT_TRUE(LiveServices::MayVanish(At(16)));
    EXPECT_FALSE(LiveServices::MayVanish(At(32)));
    LiveServices::Retire(At(16));
    EXPECT_FALSE(LiveServices::MayVanish(At(16)));
}

TEST(ServiceBirthTest, ANestedBirthPublishesOnlyItsOwn) {
    const ServiceBirth outer("fx_first", nullptr);
    LiveServices::Enter(At(16));
    {
        const ServiceBirth inner("fx_second", nullptr);
        LiveServices::Enter(At(32));
        inner.Publish();
    }
    EXPECT_FALSE(MayCallElsewhere(At(16), ServiceCall::kUse));
    EXPECT_TRUE(MayCallElsewhere(At(32), ServiceCall::kUse));
}

TEST(ServiceBirthTest, IsKnownToItsThread) {
    EXPECT_FALSE(ServiceBirth::Any());
    const ServiceBirth birth("fx_first", nullptr);
    EXPECT_TRUE(ServiceBirth::Any());
    std::thread([] { EXPECT_FALSE(ServiceBirth::Any()); }).join();
}

TEST(ServiceBirthTest, ItsChildrenAreThoseThatItHasNotPublished) {
    LiveServices::Enter(At(8));
    const ServiceBirth birth("fx_first", nullptr);
    LiveServices::Enter(At(16));
    const unsigned long id = LiveServices::Enter(At(32));
    LiveServices::Leave(At(16));
    std::thread([] { LiveServices::Enter(At(64)); }).join();
    LiveServices::Enter(At(48));
    LiveServices::Retire(At(48));
    ASSERT_EQ(1U, birth.Children().size());
    EXPECT_EQ(At(32), birth.Children().front().service);
    EXPECT_EQ(id, birth.Children().front().id);
    birth.Publish();
    EXPECT_TRUE(birth.Children().empty());
}

TEST(ServiceBirthTest, AServiceThatIsOnlyConstructedIsEverybodys) {
    { const ServiceBirth over("fx_first", nullptr); }
    LiveServices::Enter(At(16));
    EXPECT_TRUE(MayCallElsewhere(At(16), ServiceCall::kUse));
}

TEST(ServiceBirthTest, TheBundleIsKnownByNameOnItsThreadOnly) {
    auto* const bundle = reinterpret_cast<BundleObject*>(16);  // never looked into
    const ServiceBirth birth("fx_first", bundle);
    EXPECT_EQ(bundle, ServiceBirth::BundleNamed("fx_first"));
    EXPECT_EQ(nullptr, ServiceBirth::BundleNamed("fx_second"));
    std::thread([] { EXPECT_EQ(nullptr, ServiceBirth::BundleNamed("fx_first")); }).join();
}

TEST(LiveServicesTest, ThreadsMayComeAndGo) {
    std::list<test::Elsewhere> threads;
    for (std::uintptr_t thread = 1; thread <= 8; ++thread) {
        threads.emplace_back([thread] {
            for (std::uintptr_t i = 0; i < 1000; ++i) {
                const ServiceObjectBase* const service = At(thread * 100000 + i);
                const unsigned long id = LiveServices::Enter(service);
                EXPECT_EQ(id, LiveServices::IdOf(service));
                LiveServices::Leave(service, id);
                EXPECT_EQ(0U, LiveServices::IdOf(service));
            }
        });
    }
    for (const test::Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
