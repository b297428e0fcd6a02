#include <bundlemgr/detail/mutex.h>

#include <thread>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

using namespace NS_BUNDLEMGR1::detail;

// They serve static constructors and destructors, and classes that bundles were compiled with.
static_assert(std::is_trivially_destructible_v<Mutex>);
static_assert(sizeof(ThreadMutex) == sizeof(ACE_Thread_Mutex));
static_assert(sizeof(RecursiveThreadMutex) == sizeof(ACE_Recursive_Thread_Mutex));
static_assert(sizeof(RWMutex) == sizeof(ACE_RW_Mutex));

template <class Lock>
class GuardTest : public testing::Test {};

using Locks = testing::Types<Mutex, ThreadMutex, RecursiveThreadMutex, RWMutex>;
TYPED_TEST_SUITE(GuardTest, Locks);

TYPED_TEST(GuardTest, LetsOneThreadInAtATime) {
    constexpr int kRounds = 10000;
    TypeParam lock;
    int count = 0;
    const auto countUp = [&] {
        for (int i = 0; i < kRounds; ++i) {
            const Guard guard(lock);
            ++count;
        }
    };

    std::thread other(countUp);
    countUp();
    other.join();

    EXPECT_EQ(2 * kRounds, count);
}

TEST(ReadGuardTest, LetsReadersInTogether) {
    RWMutex lock;
    const ReadGuard here(lock);
    bool isIn = false;

    std::thread([&] {
        const ReadGuard there(lock);
        isIn = true;
    }).join();

    EXPECT_TRUE(isIn);
}

TEST(ReadGuardTest, LetsNoWriterIn) {
    RWMutex lock;
    const ReadGuard guard(lock);

    EXPECT_EQ(-1, lock.tryacquire_write());
}

TEST(ConditionTest, LetsGoOfTheMutexWhileItWaits) {
    Mutex mutex;
    Condition changed;
    bool isAsked = false;
    bool isAnswered = false;

    std::thread other([&] {
        const Guard guard(mutex);
        while (!isAsked) changed.Wait(mutex);
        isAnswered = true;
        changed.TellAll();
    });
    {
        const Guard guard(mutex);
        isAsked = true;
        changed.TellAll();
        while (!isAnswered) changed.Wait(mutex);
    }
    other.join();

    EXPECT_TRUE(isAnswered);
}

}  // namespace
