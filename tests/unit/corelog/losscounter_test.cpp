#include "src/corelog/losscounter.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <bundlemgr/log.h>

namespace NS_BUNDLEMGR1 {

namespace {

const ACE_Time_Value kFirst(1706745599, 42);
const ACE_Time_Value kSecond(1706745600, 0);

class LossCounterTest : public testing::Test {
protected:
    LossCounterTest() { LossCounter::Reset(); }
};

TEST_F(LossCounterTest, NothingIsLostAtFirst) {
    EXPECT_EQ(0U, GetLogLoss().records);
    EXPECT_EQ(ACE_Time_Value::zero, GetLogLoss().since);
}

TEST_F(LossCounterTest, ALossBeginsWithItsFirstRecord) {
    LossCounter::Lost(2, kFirst);
    LossCounter::Lost(3, kSecond);
    EXPECT_EQ(5U, GetLogLoss().records);
    EXPECT_EQ(kFirst, GetLogLoss().since);
}

TEST_F(LossCounterTest, NoRecordBeginsNoLoss) {
    LossCounter::Lost(0, kFirst);
    EXPECT_EQ(0U, GetLogLoss().records);
    EXPECT_EQ(ACE_Time_Value::zero, GetLogLoss().since);
}

TEST_F(LossCounterTest, RecordsThatAreKeptEndALossButNotItsCount) {
    LossCounter::Lost(2, kFirst);
    LossCounter::Kept();
    EXPECT_EQ(2U, GetLogLoss().records);
    EXPECT_EQ(ACE_Time_Value::zero, GetLogLoss().since);
    LossCounter::Lost(1, kSecond);
    EXPECT_EQ(3U, GetLogLoss().records);
    EXPECT_EQ(kSecond, GetLogLoss().since);
}

TEST_F(LossCounterTest, CountsForSeveralThreadsAtOnce) {
    constexpr int kThreads = 4;
    constexpr int kLosses = 10000;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([] {
            for (int loss = 0; loss < kLosses; ++loss) LossCounter::Lost(1, kFirst);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(static_cast<unsigned long long>(kThreads) * kLosses, GetLogLoss().records);
    EXPECT_EQ(kFirst, GetLogLoss().since);
}

}  // namespace

}  // namespace NS_BUNDLEMGR1
