#include "src/lifetime/yieldingguard.h"

#include <atomic>
#include <list>
#include <memory>

#include <ace/Recursive_Thread_Mutex.h>
#include <gtest/gtest.h>

#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CanBeDoneElsewhere;
using test::Elsewhere;

using Guard = ACE_Guard<ACE_Recursive_Thread_Mutex>;
using Yielding = YieldingGuard<ACE_Recursive_Thread_Mutex>;

class YieldingGuardTest : public testing::Test {
protected:
    /// Waits, on another thread, for a lock.
    static std::unique_ptr<Elsewhere> Wanting(ACE_Recursive_Thread_Mutex& lock) {
        return std::make_unique<Elsewhere>([&lock] { const Guard guard(lock); });
    }
    /// On another thread, holds the one lock and then yields it while it waits for the other.
    std::unique_ptr<Elsewhere> HoldingAndWaiting() {
        auto waiting = std::make_unique<Elsewhere>([this] {
            const Guard held(m_held);
            m_isHeld = true;
            const Yielding guard(m_lock, m_held);
        });
        EXPECT_TRUE(test::WaitFor([this] { return m_isHeld.load(); }));
        return waiting;
    }
    static bool IsFree(ACE_Recursive_Thread_Mutex& lock) {
        return CanBeDoneElsewhere([&lock] { const Guard guard(lock); });
    }
    static bool Waits(const Elsewhere& thread) { return !thread.Finishes(std::chrono::milliseconds(20)); }

    ACE_Recursive_Thread_Mutex m_lock;
    ACE_Recursive_Thread_Mutex m_held;
    std::atomic<bool> m_isHeld{false};
};

TEST_F(YieldingGuardTest, HoldsTheLockForItsLife) {
    const Guard held(m_held);
    auto guard = std::make_unique<Yielding>(m_lock, m_held);
    const auto other = Wanting(m_lock);
    EXPECT_TRUE(Waits(*other));
    guard.reset();
    EXPECT_TRUE(other->Finishes());
}

TEST_F(YieldingGuardTest, LetsNobodyInWhileItNeedNotWait) {
    auto held = std::make_unique<Guard>(m_held);
    const auto wantingHeld = Wanting(m_held);
    auto outer = std::make_unique<Yielding>(m_lock, m_held);
    auto inner = std::make_unique<Yielding>(m_lock, m_held);
    const auto wantingLock = Wanting(m_lock);
    EXPECT_TRUE(Waits(*wantingHeld));
    inner.reset();
    EXPECT_TRUE(Waits(*wantingLock));
    outer.reset();
    EXPECT_TRUE(wantingLock->Finishes());
    EXPECT_TRUE(Waits(*wantingHeld));
    held.reset();
    EXPECT_TRUE(wantingHeld->Finishes());
}

TEST_F(YieldingGuardTest, GivesTheOtherLockBackWhileItWaits) {
    auto busy = std::make_unique<Guard>(m_lock);
    const auto waiting = HoldingAndWaiting();
    { const Guard held(m_held); }  // as a thread that takes the two in this order does
    EXPECT_TRUE(Waits(*waiting));
    busy.reset();
    EXPECT_TRUE(waiting->Finishes());
    EXPECT_TRUE(IsFree(m_lock));
    EXPECT_TRUE(IsFree(m_held));
}

TEST_F(YieldingGuardTest, HoldsNothingWhileItWaitsForTheOtherLockToComeBack) {
    auto busy = std::make_unique<Guard>(m_lock);
    const auto waiting = HoldingAndWaiting();
    auto taken = std::make_unique<Guard>(m_held);
    busy.reset();
    EXPECT_TRUE(IsFree(m_lock));
    EXPECT_TRUE(Waits(*waiting));
    EXPECT_TRUE(IsFree(m_lock));
    taken.reset();
    EXPECT_TRUE(waiting->Finishes());
}

TEST_F(YieldingGuardTest, ThreadsInEitherOrderDoNotBlockEachOther) {
    constexpr int kRounds = 2000;
    int counter = 0;
    std::list<Elsewhere> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this, thread, &counter] {
            for (int round = 0; round < kRounds; ++round) {
                if (thread % 2 == 0) {
                    const Guard lock(m_lock);
                    const Guard held(m_held);
                    ++counter;
                } else {
                    const Guard held(m_held);
                    const Yielding lock(m_lock, m_held);
                    ++counter;
                }
            }
        });
    }
    for (const Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
    EXPECT_EQ(4 * kRounds, counter);
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
