#include "src/lifetime/servicecall.h"

#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "livetest.h"
#include "src/lifetime/nestedlock.h"
#include "src/lifetime/servicebirth.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::At;
using test::MayCall;
using test::MayCallElsewhere;

TEST(ServiceCallTest, IsForLiveServicesOfTheRightNumber) {
    EXPECT_FALSE(MayCall(At(16), CallPurpose::kUse));
    const unsigned long id = LiveServices::Add(At(16));
    EXPECT_TRUE(MayCall(At(16), CallPurpose::kUse));
    EXPECT_TRUE(MayCall(At(16), CallPurpose::kEndThreads, id));
    EXPECT_FALSE(MayCall(At(16), CallPurpose::kUse, id + 1));
    LiveServices::Remove(At(16));
    EXPECT_FALSE(MayCall(At(16), CallPurpose::kEndThreads, id));
}

TEST(ServiceCallTest, IsKnownToItsThread) {
    LiveServices::Add(At(16));
    EXPECT_FALSE(InService::IsActive());
    {
        const ServiceCall call(At(16), 0, CallPurpose::kUse);
        EXPECT_TRUE(InService::IsActive());
        std::thread([] { EXPECT_FALSE(InService::IsActive()); }).join();
    }
    EXPECT_FALSE(InService::IsActive());
}

TEST(ServiceCallTest, AServiceThatIsBeingMadeIsItsMakersUntilItIsPublished) {
    const ServiceBirth birth("fx_first", nullptr);
    LiveServices::Add(At(16));
    EXPECT_TRUE(MayCall(At(16), CallPurpose::kUse));
    EXPECT_FALSE(MayCallElsewhere(At(16), CallPurpose::kUse));
    EXPECT_FALSE(MayCallElsewhere(At(16), CallPurpose::kEndThreads));
    birth.Publish();
    EXPECT_TRUE(MayCallElsewhere(At(16), CallPurpose::kUse));
}

TEST(ServiceCallTest, OnceConstructedItMayBeToldToEndItsThreads) {
    const ServiceBirth birth("fx_first", nullptr);
    LiveServices::Add(At(16));
    LiveServices::MarkMade(At(16));
    EXPECT_TRUE(MayCallElsewhere(At(16), CallPurpose::kEndThreads));
    EXPECT_FALSE(MayCallElsewhere(At(16), CallPurpose::kUse));
}

TEST(ServiceCallTest, NobodyCallsWhatDidNotInitialise) {
    for (const bool isMade : {true, false}) {
        const ServiceBirth birth("fx_first", nullptr);
        const unsigned long id = LiveServices::Add(At(16));
        if (isMade) LiveServices::MarkMade(At(16));
        LiveServices::GiveUp(At(16), id);
        birth.Publish();
        EXPECT_FALSE(MayCall(At(16), CallPurpose::kEndThreads));
        EXPECT_FALSE(MayCallElsewhere(At(16), CallPurpose::kUse));
    }
}

TEST(ServiceCallTest, WhoEndsAServiceIsTheOnlyOneToCallIt) {
    LiveServices::Add(At(16));
    LiveServices::MarkMade(At(16));
    LiveServices::Retire(At(16));
    EXPECT_TRUE(MayCall(At(16), CallPurpose::kUse));
    EXPECT_FALSE(MayCallElsewhere(At(16), CallPurpose::kUse));
    EXPECT_FALSE(MayCallElsewhere(At(16), CallPurpose::kEndThreads));
}

TEST(ServiceCallTest, KeepsAServiceFromBeingEnded) {
    LiveServices::Add(At(16));
    auto call = std::make_unique<ServiceCall>(At(16), 0, CallPurpose::kUse);
    auto another = std::make_unique<ServiceCall>(At(16), 0, CallPurpose::kUse);
    ACE_Recursive_Thread_Mutex lock;
    const test::Elsewhere ending([&lock] {
        const ServiceCall ownCalls(At(16), 0, CallPurpose::kUse);  // is no obstacle
        const NestedGuard held(lock, LockRank::kBundle);
        LiveServices::Retire(At(16));
    });
    EXPECT_TRUE(test::WaitFor([] { return !MayCall(At(16), CallPurpose::kUse); }));
    { const NestedGuard free(lock, LockRank::kBundle); }  // is let go of meanwhile
    EXPECT_FALSE(ending.Finishes(std::chrono::milliseconds(20)));
    call.reset();
    EXPECT_FALSE(ending.Finishes(std::chrono::milliseconds(20)));
    another.reset();
    EXPECT_TRUE(ending.Finishes());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
