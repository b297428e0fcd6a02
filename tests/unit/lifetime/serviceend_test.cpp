#include "src/lifetime/serviceend.h"

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "livetest.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::At;
using test::Elsewhere;
using test::MayCall;
using test::MayCallElsewhere;

TEST(ServiceEndTest, NobodyElseCallsAServiceThatIsEnded) {
    LiveServices::Add(At(16));
    LiveServices::MarkMade(At(16));
    EXPECT_TRUE(MayCallElsewhere(At(16), CallPurpose::kUse));
    const ServiceEnd end(At(16));
    EXPECT_FALSE(MayCallElsewhere(At(16), CallPurpose::kUse));
    EXPECT_FALSE(MayCallElsewhere(At(16), CallPurpose::kEndThreads));
    EXPECT_TRUE(MayCall(At(16), CallPurpose::kUse));
}

TEST(ServiceEndTest, AfterItsEndAServiceIsThereNoMore) {
    const unsigned long id = LiveServices::Add(At(16));
    { const ServiceEnd end(At(16)); }
    EXPECT_EQ(0U, LiveServices::IdOf(At(16)));
    EXPECT_FALSE(MayCall(At(16), CallPurpose::kUse));
    LiveServices::AwaitEnd(At(16), id);
}

TEST(ServiceEndTest, OtherServicesStay) {
    LiveServices::Add(At(16));
    const unsigned long other = LiveServices::Add(At(32));
    { const ServiceEnd end(At(16)); }
    EXPECT_EQ(other, LiveServices::IdOf(At(32)));
    EXPECT_TRUE(MayCallElsewhere(At(32), CallPurpose::kUse));
}

TEST(ServiceEndTest, ItsThreadIsInTheServiceMeanwhile) {
    LiveServices::Add(At(16));
    EXPECT_FALSE(InService::IsActive());
    {
        const ServiceEnd end(At(16));
        EXPECT_TRUE(InService::IsActive());
        std::thread([] { EXPECT_FALSE(InService::IsActive()); }).join();
    }
    EXPECT_FALSE(InService::IsActive());
}

TEST(ServiceEndTest, WaitsForThoseWhoAreInACall) {
    LiveServices::Add(At(16));
    auto call = std::make_unique<ServiceCall>(At(16), 0, CallPurpose::kUse);
    std::atomic<bool> hasBegun{false};
    const Elsewhere ending([&hasBegun] {
        const ServiceEnd end(At(16));
        hasBegun = true;
    });
    EXPECT_FALSE(ending.Finishes(std::chrono::milliseconds(20)));
    EXPECT_FALSE(hasBegun);
    call.reset();
    EXPECT_TRUE(ending.Finishes());
    EXPECT_EQ(0U, LiveServices::IdOf(At(16)));
}

// A service may be removed in its own ExitThreads, for example.
TEST(ServiceEndTest, ACallOfTheSameThreadIsNotWaitedFor) {
    LiveServices::Add(At(16));
    const ServiceCall call(At(16), 0, CallPurpose::kUse);
    { const ServiceEnd end(At(16)); }
    EXPECT_EQ(0U, LiveServices::IdOf(At(16)));
    EXPECT_TRUE(InService::IsActive());  // still in the call
}

// The destructor may run meanwhile, and the next service be constructed where it was.
TEST(ServiceEndTest, TheSuccessorAtTheSameAddressStays) {
    LiveServices::Add(At(16));
    unsigned long successor = 0;
    {
        const ServiceEnd end(At(16));
        LiveServices::Remove(At(16));
        successor = LiveServices::Add(At(16));
    }
    EXPECT_EQ(successor, LiveServices::IdOf(At(16)));
    EXPECT_TRUE(MayCallElsewhere(At(16), CallPurpose::kUse));
}

TEST(ServiceEndTest, WhatIsNoServiceOfThisLibraryMayBeEndedToo) {
    for (const ServiceObjectBase* const stranger : {At(0), At(16)}) {
        unsigned long enteredMeanwhile = 0;
        {
            const ServiceEnd end(stranger);
            EXPECT_TRUE(InService::IsActive());
            enteredMeanwhile = LiveServices::Add(stranger);
        }
        EXPECT_EQ(enteredMeanwhile, LiveServices::IdOf(stranger));
        LiveServices::Remove(stranger);
    }
}

TEST(ServiceEndTest, TheInnerOfTwoEndsIsTheEnd) {
    LiveServices::Add(At(16));
    unsigned long successor = 0;
    {
        const ServiceEnd outer(At(16));
        { const ServiceEnd inner(At(16)); }
        EXPECT_EQ(0U, LiveServices::IdOf(At(16)));
        EXPECT_TRUE(InService::IsActive());
        successor = LiveServices::Add(At(16));
    }
    EXPECT_EQ(successor, LiveServices::IdOf(At(16)));
}

TEST(ServiceEndTest, ManyThreadsMayEndTheirServicesAtOnce) {
    std::list<Elsewhere> threads;
    for (std::uintptr_t thread = 1; thread <= 8; ++thread) {
        threads.emplace_back([thread] {
            for (std::uintptr_t i = 0; i < 1000; ++i) {
                const ServiceObjectBase* const service = At(thread * 100000 + i);
                LiveServices::Add(service);
                { const ServiceEnd end(service); }
                EXPECT_EQ(0U, LiveServices::IdOf(service));
            }
        });
    }
    for (const Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
