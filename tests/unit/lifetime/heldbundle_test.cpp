#include "src/lifetime/heldbundle.h"

#include <thread>

#include <gtest/gtest.h>

#include "src/lifetime/tablelock.h"

namespace NS_BUNDLEMGR1 {
namespace {

TEST(HeldBundleTest, IsKnownWhileItIsHeld) {
    ACE_Recursive_Thread_Mutex lock;
    EXPECT_FALSE(HeldBundle::Any());
    {
        const HeldBundle held(lock);
        EXPECT_TRUE(HeldBundle::Any());
        const HeldBundle again(lock);
    }
    EXPECT_FALSE(HeldBundle::Any());
}

TEST(HeldBundleTest, TheTableIsNoBundle) {
    const TableLock::Guard table;
    EXPECT_FALSE(HeldBundle::Any());
}

TEST(HeldBundleTest, IsNotKnownToOtherThreads) {
    ACE_Recursive_Thread_Mutex lock;
    const HeldBundle held(lock);
    bool seen = true;
    std::thread([&seen] { seen = HeldBundle::Any(); }).join();
    EXPECT_FALSE(seen);
}

TEST(HeldBundleTest, IsNotHeldInAPause) {
    ACE_Recursive_Thread_Mutex lock;
    const HeldBundle held(lock);
    {
        const LockPause pause;
        EXPECT_FALSE(HeldBundle::Any());
    }
    EXPECT_TRUE(HeldBundle::Any());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
