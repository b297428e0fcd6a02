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

TEST(WallClockTest, IsNormalised) {
    for (const long seconds : {-5L, -1L, 0L, 5L}) {
        for (const long microseconds : {-1L, 0L, 500000L, 1000000L}) {
            test::Clock::Set(seconds, microseconds);
            const ACE_Time_Value expected(seconds, microseconds);
            const ACE_Time_Value now = WallClock();
            EXPECT_EQ(expected.sec(), now.sec()) << seconds << ", " << microseconds;
            EXPECT_EQ(expected.usec(), now.usec()) << seconds << ", " << microseconds;
        }
    }
    test::Clock::Reset();
}

TEST(WallClockTest, AClockThatCannotBeReadSaysSo) {
    test::Clock::Break();
    EXPECT_EQ(ACE_Time_Value(-1, 0), WallClock());
    test::Clock::Reset();
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
