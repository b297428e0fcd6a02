#include "src/platform/processbarrier.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <thread>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <gtest/gtest.h>

#include "support/forkedchild.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

constexpr int kRounds = 20000;

// Two threads store and look, round after round, until they have had enough or time is up.
// Returns how often neither saw the other.
int CountOverlooked(std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    std::atomic<int> rounds{kRounds};
    std::atomic<int> often{0};
    std::atomic<int> seldom{0};
    std::atomic<int> begun{0};  // by both
    int seenByOften = 0;
    std::atomic<int> done{0};
    int overlooked = 0;
    std::thread other([&] {
        for (int round = 1; round <= rounds; ++round) {
            ++begun;
            while (begun < 2 * round) std::this_thread::yield();
            ProcessBarrier::Publish(often, round);
            seenByOften = seldom.load(std::memory_order_relaxed);
            done = round;
            while (done == round) std::this_thread::yield();
        }
    });
    for (int round = 1; round <= rounds; ++round) {
        ++begun;
        while (begun < 2 * round) std::this_thread::yield();
        seldom.store(round);
        ProcessBarrier::Cross();
        const int seen = often.load();
        while (done != round) std::this_thread::yield();
        if (seen != round && seenByOften != round) ++overlooked;
        if (std::chrono::steady_clock::now() > end) rounds = round;
        done = 0;
    }
    other.join();
    return overlooked;
}

// From now on, and for good, the system refuses memory barriers.
bool RefuseBarriers() {
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_membarrier, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{sizeof steps / sizeof steps[0], steps};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST(ProcessBarrier, OfTwoThreadsThatStoreAndLookOneSeesTheOther) {
    EXPECT_EQ(0, CountOverlooked(test::kDeadline));
}

TEST(ProcessBarrier, OneSeesTheOtherAlsoWhenTheSystemRefusesBarriersLater) {
    constexpr std::chrono::milliseconds kTime(500);
    EXPECT_EQ(0, test::InForkedChild([] {
                  EXPECT_TRUE(RefuseBarriers());
                  return CountOverlooked(kTime) == 0;
              }));
}

TEST(ProcessBarrier, RefusedByTheSystemItGivesTheStoresOfOthersTime) {
    using Clock = std::chrono::steady_clock;
    EXPECT_EQ(0, test::InForkedChild([] {
                  EXPECT_TRUE(RefuseBarriers());
                  for (int i = 0; i < 2; ++i) {
                      const Clock::time_point begin = Clock::now();
                      ProcessBarrier::Cross();
                      EXPECT_LE(std::chrono::milliseconds(1), Clock::now() - begin);
                  }
                  return true;
              }));
}

TEST(ProcessBarrier, IsThereInAForkedChild) {
    EXPECT_EQ(0, test::InForkedChild([] {
                  ProcessBarrier::Cross();
                  return true;
              }));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
