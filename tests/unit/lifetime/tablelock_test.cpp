#include "src/lifetime/tablelock.h"

#include <memory>

#include <gtest/gtest.h>

#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

bool CanBeTakenElsewhere() {
    return test::CanBeDoneElsewhere([] { const TableLock::Guard table; });
}

TEST(TableLockTest, OneThreadHasTheTable) {
    auto table = std::make_unique<TableLock::Guard>();
    const test::Elsewhere other([] { const TableLock::Guard otherTable; });
    EXPECT_FALSE(other.Finishes(std::chrono::milliseconds(20)));
    table.reset();
    EXPECT_TRUE(other.Finishes());
}

TEST(TableLockTest, WhoHasItMayTakeItAgain) {
    {
        const TableLock::Guard table;
        const TableLock::Guard again;
    }
    EXPECT_TRUE(CanBeTakenElsewhere());
}

TEST(TableLockTest, IsLetGoOfInAPause) {
    const TableLock::Guard table;
    const TableLock::Guard again;
    const LockPause pause;
    EXPECT_TRUE(CanBeTakenElsewhere());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
