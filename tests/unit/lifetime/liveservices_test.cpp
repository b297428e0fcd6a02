#include "src/lifetime/liveservices.h"

#include <list>
#include <thread>

#include <gtest/gtest.h>

#include "livetest.h"
#include "src/lifetime/servicebirth.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::At;

TEST(LiveServicesTest, NobodyIsLiveAtFirst) {
    EXPECT_EQ(0U, LiveServices::IdOf(At(16)));
    EXPECT_EQ(0U, LiveServices::IdOf(nullptr));
    LiveServices::Remove(At(16));
    LiveServices::Remove(nullptr, 0);
}

TEST(LiveServicesTest, EachObjectHasANumberOfItsOwn) {
    const unsigned long first = LiveServices::Add(At(16));
    const unsigned long second = LiveServices::Add(At(32));
    EXPECT_NE(0U, first);
    EXPECT_NE(0U, second);
    EXPECT_NE(first, second);
    EXPECT_EQ(first, LiveServices::IdOf(At(16)));
    EXPECT_EQ(second, LiveServices::IdOf(At(32)));
}

TEST(LiveServicesTest, AnotherObjectAtTheSameAddressHasAnotherNumber) {
    const unsigned long first = LiveServices::Add(At(16));
    LiveServices::Remove(At(16));
    EXPECT_EQ(0U, LiveServices::IdOf(At(16)));
    EXPECT_NE(first, LiveServices::Add(At(16)));
}

TEST(LiveServicesTest, LeavingByNumberSparesTheSuccessor) {
    const unsigned long first = LiveServices::Add(At(16));
    const unsigned long second = LiveServices::Add(At(16));
    LiveServices::Remove(At(16), first);
    EXPECT_EQ(second, LiveServices::IdOf(At(16)));
    LiveServices::Remove(At(16), second);
    EXPECT_EQ(0U, LiveServices::IdOf(At(16)));
}

TEST(LiveServicesTest, KnowsWhatAnotherThreadIsEnding) {
    const unsigned long id = LiveServices::Add(At(16));
    EXPECT_FALSE(LiveServices::IsRetiredElsewhere(At(16), id));
    std::thread([] { LiveServices::Retire(At(16)); }).join();
    EXPECT_TRUE(LiveServices::IsRetiredElsewhere(At(16), id));
    EXPECT_FALSE(LiveServices::IsRetiredElsewhere(At(16), id + 1));
    LiveServices::Retire(At(16));
    EXPECT_FALSE(LiveServices::IsRetiredElsewhere(At(16), id));
}

TEST(LiveServicesTest, ItsEndCanBeAwaited) {
    const unsigned long id = LiveServices::Add(At(16));
    const test::Elsewhere waiting([id] { LiveServices::AwaitEnd(At(16), id); });
    EXPECT_FALSE(waiting.Finishes(std::chrono::milliseconds(20)));
    LiveServices::Add(At(16));  // a successor
    LiveServices::Remove(At(32));
    LiveServices::Add(At(32));
    LiveServices::Remove(At(32));
    EXPECT_TRUE(waiting.Finishes());
    LiveServices::AwaitEnd(At(16), id);
}

TEST(LiveServicesTest, OnlyWhatTheConfiguratorMadeByAPlainFactoryMayVanish) {
    LiveServices::Add(At(8));
    const ServiceBirth birth("fx_first", nullptr);
    LiveServices::Add(At(16));
    LiveServices::Add(At(32));
    LiveServices::MarkMade(At(32));
    EXPECT_FALSE(LiveServices::MayVanish(At(8)));
    EXPECT_TRUE(LiveServices::MayVanish(At(16)));
    EXPECT_FALSE(LiveServices::MayVanish(At(32)));
    LiveServices::Retire(At(16));
    EXPECT_FALSE(LiveServices::MayVanish(At(16)));
}

TEST(LiveServicesTest, ThreadsMayComeAndGo) {
    std::list<test::Elsewhere> threads;
    for (std::uintptr_t thread = 1; thread <= 8; ++thread) {
        threads.emplace_back([thread] {
            for (std::uintptr_t i = 0; i < 1000; ++i) {
                const ServiceObjectBase* const service = At(thread * 100000 + i);
                const unsigned long id = LiveServices::Add(service);
                EXPECT_EQ(id, LiveServices::IdOf(service));
                LiveServices::Remove(service, id);
                EXPECT_EQ(0U, LiveServices::IdOf(service));
            }
        });
    }
    for (const test::Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
