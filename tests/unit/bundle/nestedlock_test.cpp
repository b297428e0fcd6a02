#include "bundle/nestedlock.h"

#include <memory>

#include <gtest/gtest.h>

#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CanBeDoneElsewhere;
using test::Elsewhere;

class NestedLockTest : public testing::Test {
protected:
    std::unique_ptr<NestedGuard> Acquire() { return std::make_unique<NestedGuard>(m_lock, m_depth); }
    NestedHold Hold() { return NestedHold(m_lock, m_depth); }

    /// Waits, on another thread, for the lock, and sees the depth there.
    std::unique_ptr<Elsewhere> Wanting(unsigned& depth) {
        return std::make_unique<Elsewhere>([this, &depth] {
            const NestedGuard guard(m_lock, m_depth);
            depth = m_depth;
        });
    }
    static bool Waits(const Elsewhere& thread) { return !thread.Finishes(std::chrono::milliseconds(20)); }

    ACE_Recursive_Thread_Mutex m_lock;
    unsigned m_depth = 0;
    unsigned m_seen = 0;
};

TEST_F(NestedLockTest, EachGuardCounts) {
    auto outer = Acquire();
    auto inner = Acquire();
    EXPECT_EQ(2U, m_depth);
    inner.reset();
    EXPECT_EQ(1U, m_depth);
    const auto other = Wanting(m_seen);
    EXPECT_TRUE(Waits(*other));
    outer.reset();
    EXPECT_TRUE(other->Finishes());
    EXPECT_EQ(1U, m_seen);
    EXPECT_EQ(0U, m_depth);
}

TEST_F(NestedLockTest, AllLevelsAreReleasedAndTakenBack) {
    auto outer = Acquire();
    auto inner = Acquire();
    NestedHold hold = Hold();
    hold.release();
    EXPECT_TRUE(Wanting(m_seen)->Finishes());
    EXPECT_EQ(1U, m_seen);  // its own alone
    hold.acquire();
    EXPECT_EQ(2U, m_depth);

    const auto other = Wanting(m_seen);
    inner.reset();
    EXPECT_TRUE(Waits(*other));
    outer.reset();
    EXPECT_TRUE(other->Finishes());
}

TEST_F(NestedLockTest, ALevelThatNoGuardHoldsStays) {
    auto uncounted = std::make_unique<ACE_Guard<ACE_Recursive_Thread_Mutex>>(m_lock);
    auto guard = Acquire();
    NestedHold hold = Hold();
    hold.release();
    const auto other = Wanting(m_seen);
    EXPECT_TRUE(Waits(*other));
    hold.acquire();
    EXPECT_EQ(1U, m_depth);
    guard.reset();
    uncounted.reset();
    EXPECT_TRUE(other->Finishes());
}

TEST_F(NestedLockTest, WhoHoldsNothingReleasesNothing) {
    NestedHold hold = Hold();
    hold.release();
    hold.acquire();
    EXPECT_EQ(0U, m_depth);
    EXPECT_TRUE(CanBeDoneElsewhere([this] { const NestedGuard guard(m_lock, m_depth); }));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
