#include "src/lifetime/nestedlock.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <list>
#include <memory>
#include <random>
#include <vector>

#include <ace/Guard_T.h>
#include <gtest/gtest.h>

#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CanBeDoneElsewhere;
using test::Elsewhere;

// Counts for nobody, and is not let go of.
using RawGuard = ACE_Guard<ACE_Recursive_Thread_Mutex>;

class NestedLockTest : public testing::Test {
protected:
    static std::unique_ptr<NestedGuard> Acquire(ACE_Recursive_Thread_Mutex& lock, LockRank rank = LockRank::kBundle) {
        return std::make_unique<NestedGuard>(lock, rank);
    }
    static std::unique_ptr<Elsewhere> Wanting(ACE_Recursive_Thread_Mutex& lock) {
        return std::make_unique<Elsewhere>([&lock] { const NestedGuard guard(lock, LockRank::kBundle); });
    }
    static bool IsFree(ACE_Recursive_Thread_Mutex& lock) {
        return CanBeDoneElsewhere([&lock] { const NestedGuard guard(lock, LockRank::kBundle); });
    }
    static bool Waits(const Elsewhere& thread) { return !thread.Finishes(std::chrono::milliseconds(20)); }

    ACE_Recursive_Thread_Mutex m_lock;
    ACE_Recursive_Thread_Mutex m_other;
};

TEST_F(NestedLockTest, EachGuardHolds) {
    auto outer = Acquire(m_lock);
    auto inner = Acquire(m_lock);
    const auto other = Wanting(m_lock);
    inner.reset();
    EXPECT_TRUE(Waits(*other));
    outer.reset();
    EXPECT_TRUE(other->Finishes());
}

TEST_F(NestedLockTest, KnowsTheRanksThatAThreadHolds) {
    EXPECT_FALSE(NestedGuard::Holds(LockRank::kTable));
    const auto table = Acquire(m_lock, LockRank::kTable);
    EXPECT_TRUE(NestedGuard::Holds(LockRank::kTable));
    EXPECT_FALSE(NestedGuard::Holds(LockRank::kBundle));
}

TEST_F(NestedLockTest, APauseLetsGoOfAllLevelsAndTakesThemBack) {
    auto outer = Acquire(m_lock);
    auto other = Acquire(m_other);
    auto inner = Acquire(m_lock);
    {
        const LockPause pause;
        EXPECT_TRUE(IsFree(m_lock));
        EXPECT_TRUE(IsFree(m_other));
    }
    const auto wanting = Wanting(m_lock);
    const auto wantingOther = Wanting(m_other);
    inner.reset();
    EXPECT_TRUE(Waits(*wanting));
    outer.reset();
    EXPECT_TRUE(wanting->Finishes());
    EXPECT_TRUE(Waits(*wantingOther));
    other.reset();
    EXPECT_TRUE(wantingOther->Finishes());
}

TEST_F(NestedLockTest, WhatIsTakenInAPauseStandsByItself) {
    const auto held = Acquire(m_lock);
    {
        const LockPause pause;
        const auto meanwhile = Acquire(m_other);
        {
            const LockPause again;
            EXPECT_TRUE(IsFree(m_other));
        }
        EXPECT_TRUE(IsFree(m_lock));
    }
    EXPECT_TRUE(IsFree(m_other));
}

TEST_F(NestedLockTest, ALevelThatNoGuardHoldsStays) {
    auto uncounted = std::make_unique<RawGuard>(m_lock);
    auto guard = Acquire(m_lock);
    std::unique_ptr<Elsewhere> other;
    {
        const LockPause pause;
        other = Wanting(m_lock);
        EXPECT_TRUE(Waits(*other));
    }
    guard.reset();
    uncounted.reset();
    EXPECT_TRUE(other->Finishes());
}

TEST_F(NestedLockTest, WhoHoldsNothingMayPause) {
    { const LockPause pause; }
    EXPECT_TRUE(IsFree(m_lock));
}

TEST_F(NestedLockTest, AThreadThatWaitsHoldsNothing) {
    auto busy = std::make_unique<RawGuard>(m_other);
    std::atomic<bool> isHeld{false};
    const Elsewhere waiting([this, &isHeld] {
        const NestedGuard held(m_lock, LockRank::kTable);
        const NestedGuard heldTwice(m_lock, LockRank::kTable);
        isHeld = true;
        const NestedGuard wanted(m_other, LockRank::kBundle);
        EXPECT_TRUE(NestedGuard::Holds(LockRank::kTable));
    });
    ASSERT_TRUE(test::WaitFor([&isHeld] { return isHeld.load(); }));
    { const RawGuard mine(m_lock); }  // the two in the other order
    EXPECT_TRUE(Waits(waiting));
    busy.reset();
    EXPECT_TRUE(waiting.Finishes());
    EXPECT_TRUE(IsFree(m_lock));
    EXPECT_TRUE(IsFree(m_other));
}

TEST_F(NestedLockTest, ThreadsThatTakeManyInAnyOrderDoNotBlockEachOther) {
    constexpr int kRounds = 2000;
    std::array<ACE_Recursive_Thread_Mutex, 4> locks;
    std::array<int, 4> counts{};
    std::list<Elsewhere> threads;
    for (unsigned thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread, &locks, &counts] {
            std::mt19937 random(thread);
            std::vector<std::size_t> order{0, 1, 2, 3, 1};
            for (int round = 0; round < kRounds; ++round) {
                std::shuffle(order.begin(), order.end(), random);
                std::list<NestedGuard> guards;
                for (const std::size_t i : order) {
                    guards.emplace_back(locks[i], i == 0 ? LockRank::kTable : LockRank::kBundle);
                }
                for (int& count : counts) ++count;
                while (!guards.empty()) guards.pop_back();
            }
        });
    }
    for (const Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
    for (const int count : counts) EXPECT_EQ(4 * kRounds, count);
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
