// That a birth keeps nothing of what has gone. Counted, since sizes cannot be seen from outside.
#include "src/lifetime/servicebirth.h"

#include <atomic>

#include <gtest/gtest.h>

#include "livetest.h"
#include "support/replacednew.h"

namespace {

std::atomic<unsigned long> g_allocations{0};

}  // namespace

bool test::RefusesMemory() noexcept {
    ++g_allocations;
    return false;
}

namespace NS_BUNDLEMGR1 {
namespace {

using test::At;

void ComeAndGo(int count) {
    for (int round = 0; round < count; ++round) {
        LiveServices::Add(At(16));
        LiveServices::Remove(At(16));
    }
}

unsigned long AllocationsOfComingAndGoing() {
    ComeAndGo(100);  // takes the memory that is kept
    const unsigned long before = g_allocations;
    ComeAndGo(10000);
    return g_allocations - before;
}

TEST(ServiceBirthGrowthTest, ServicesThatComeAndGoLeaveNothingInAnInitThatDoesNotReturn) {
    const unsigned long outside = AllocationsOfComingAndGoing();
    const ServiceBirth birth("fx_first", nullptr);
    EXPECT_EQ(outside, AllocationsOfComingAndGoing());
}

TEST(ServiceBirthGrowthTest, NorDoTheyAmongServicesThatStay) {
    const unsigned long outside = AllocationsOfComingAndGoing();
    const ServiceBirth outer("fx_first", nullptr);
    for (std::uintptr_t address = 32; address < 64; ++address) LiveServices::Add(At(address));
    const ServiceBirth inner("fx_second", nullptr);
    for (std::uintptr_t address = 64; address < 80; ++address) LiveServices::Add(At(address));
    EXPECT_EQ(outside, AllocationsOfComingAndGoing());
    EXPECT_EQ(16U, inner.Children().size());
    EXPECT_EQ(48U, outer.Children().size());
    for (std::uintptr_t address = 32; address < 80; ++address) LiveServices::Remove(At(address));
}

// What the birth that it is nested in has made is not its to forget.
TEST(ServiceBirthGrowthTest, AnInnerBirthPublishesItsOwnAfterThoseOfTheOuterOneHaveGone) {
    const ServiceBirth outer("fx_first", nullptr);
    for (std::uintptr_t address = 32; address < 64; ++address) LiveServices::Add(At(address));
    for (std::uintptr_t address = 33; address < 64; ++address) LiveServices::Remove(At(address));
    {
        const ServiceBirth inner("fx_second", nullptr);
        LiveServices::Add(At(16));
        for (std::uintptr_t address = 64; address < 128; ++address) LiveServices::Add(At(address));
        for (std::uintptr_t address = 64; address < 128; ++address) LiveServices::Remove(At(address));
        inner.Publish();
    }
    EXPECT_TRUE(test::MayCallElsewhere(At(16), CallPurpose::kUse));
    EXPECT_FALSE(test::MayCallElsewhere(At(32), CallPurpose::kUse));
    ASSERT_EQ(1U, outer.Children().size());
    EXPECT_EQ(At(32), outer.Children().front().object);
    for (const std::uintptr_t address : {16, 32}) LiveServices::Remove(At(address));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
