#include "src/platform/wallclock.h"

#include <gtest/gtest.h>

#include "support/testclock.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::Clock;

constexpr long kTheSecond = 1706745599;

TEST(WallClockTest, IsThatOfTheSystem) {
    test::Clock::Set(kTheSecond, 999999);
    EXPECT_EQ(ACE_Time_Value(kTheSecond, 999999), WallClock());
    test::Clock::Reset();
    EXPECT_LT(ACE_Time_Value(kTheSecond), WallClock());
}

TEST(WallClockTest, AClockThatCannotBeReadSaysSo) {
    test::Clock::Break();
    EXPECT_EQ(ACE_Time_Value(-1, 0), WallClock());
    test::Clock::Reset();
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
