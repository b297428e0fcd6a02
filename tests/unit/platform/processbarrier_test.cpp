#include "src/platform/processbarrier.h"

#include <thread>

#include <gtest/gtest.h>

#include "support/forkedchild.h"

namespace NS_BUNDLEMGR1 {
namespace {

TEST(ProcessBarrier, OfTwoThreadsThatStoreAndLookOneSeesTheOther) {
    constexpr int kRounds = 20000;
    std::atomic<int> often{0};
    std::atomic<int> seldom{0};
    std::atomic<int> begun{0};  // by both
    int seenByOften = 0;
    std::atomic<int> done{0};
    std::atomic<int> overlooked{0};
    std::thread other([&] {
        for (int round = 1; round <= kRounds; ++round) {
            ++begun;
            while (begun < 2 * round) std::this_thread::yield();
            ProcessBarrier::Publish(often, round);
            seenByOften = seldom.load(std::memory_order_relaxed);
            done = round;
            while (done == round) std::this_thread::yield();
        }
    });
    for (int round = 1; round <= kRounds; ++round) {
        ++begun;
        while (begun < 2 * round) std::this_thread::yield();
        seldom.store(round);
        ProcessBarrier::Cross();
        const int seen = often.load();
        while (done != round) std::this_thread::yield();
        if (seen != round && seenByOften != round) ++overlooked;
        done = 0;
    }
    other.join();
    EXPECT_EQ(0, overlooked);
}

TEST(ProcessBarrier, IsThereInAForkedChild) {
    EXPECT_EQ(0, test::InForkedChild([] {
                  ProcessBarrier::Cross();
                  return true;
              }));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
