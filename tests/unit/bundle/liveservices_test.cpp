#include "bundle/liveservices.h"

#include <cstdint>
#include <list>
#include <thread>

#include <gtest/gtest.h>

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

unsigned long IdOfElsewhere(const ServiceObjectBase* service) {
    unsigned long id = 0;
    std::thread([&id, service] { id = LiveServices::IdOf(service); }).join();
    return id;
}

TEST(ServiceBirthTest, AServiceIsItsMakersUntilItIsPublished) {
    const ServiceBirth birth("fx_first", nullptr);
    const unsigned long id = LiveServices::Enter(At(16));
    EXPECT_EQ(id, LiveServices::IdOf(At(16)));
    EXPECT_EQ(0U, IdOfElsewhere(At(16)));
    birth.Publish();
    EXPECT_EQ(id, IdOfElsewhere(At(16)));
}

TEST(ServiceBirthTest, ANestedBirthPublishesOnlyItsOwn) {
    const ServiceBirth outer("fx_first", nullptr);
    LiveServices::Enter(At(16));
    {
        const ServiceBirth inner("fx_second", nullptr);
        LiveServices::Enter(At(32));
        inner.Publish();
    }
    EXPECT_EQ(0U, IdOfElsewhere(At(16)));
    EXPECT_NE(0U, IdOfElsewhere(At(32)));
}

TEST(ServiceBirthTest, ItsChildrenAreThoseThatItHasNotPublished) {
    LiveServices::Enter(At(8));
    const ServiceBirth birth("fx_first", nullptr);
    LiveServices::Enter(At(16));
    const unsigned long id = LiveServices::Enter(At(32));
    LiveServices::Leave(At(16));
    std::thread([] { LiveServices::Enter(At(64)); }).join();
    ASSERT_EQ(1U, birth.Children().size());
    EXPECT_EQ(At(32), birth.Children().front().service);
    EXPECT_EQ(id, birth.Children().front().id);
    birth.Publish();
    EXPECT_TRUE(birth.Children().empty());
}

TEST(ServiceBirthTest, AServiceThatIsOnlyConstructedIsEverybodys) {
    { const ServiceBirth over("fx_first", nullptr); }
    const unsigned long id = LiveServices::Enter(At(16));
    EXPECT_EQ(id, IdOfElsewhere(At(16)));
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
