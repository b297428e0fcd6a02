// A thread that is cancelled while it waits. Apart, since it replaces the mutex functions of its
// whole process.
#include <pthread.h>

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include <bundlemgr/detail/mutex.h>

#include "support/replacedfunction.h"
#include "support/wait.h"

namespace {

using namespace NS_BUNDLEMGR1::detail;

// Calls on this thread; those within the C library's own waiting are not seen here.
struct Calls {
    int locks = 0;
    int unlocks = 0;
};
thread_local Calls t_calls;

}  // namespace

// Thread sanitizer must see the mutexes itself.
#if !defined(__SANITIZE_THREAD__)

extern "C" ZO_REPLACES int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    ++t_calls.locks;
    static const auto next = test::Next<int (*)(pthread_mutex_t*)>("pthread_mutex_lock");
    return next(mutex);
}

extern "C" ZO_REPLACES int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    ++t_calls.unlocks;
    static const auto next = test::Next<int (*)(pthread_mutex_t*)>("pthread_mutex_unlock");
    return next(mutex);
}

#endif

namespace {

// Takes over what the thread has called, after the objects that it made later are gone.
class CallsAtEnd {
public:
    explicit CallsAtEnd(Calls& calls) : m_calls(calls) { t_calls = Calls(); }
    ~CallsAtEnd() { m_calls = t_calls; }
    CallsAtEnd(const CallsAtEnd&) = delete;
    CallsAtEnd& operator=(const CallsAtEnd&) = delete;

private:
    Calls& m_calls;
};

TEST(ConditionTest, AWaitThatIsCancelledLeavesTheMutexToItsHolder) {
    Mutex mutex;
    Condition condition;
    std::atomic<bool> isHeld{false};
    Calls calls;
    std::thread waiting([&] {
        const CallsAtEnd end(calls);
        const Guard guard(mutex);
        isHeld = true;
        for (;;) condition.Wait(mutex);
    });
    ASSERT_TRUE(test::WaitFor([&] { return isHeld.load(); }));
    { const Guard guard(mutex); }  // it has let go of the mutex, so it waits

    pthread_cancel(waiting.native_handle());
    waiting.join();

    EXPECT_EQ(calls.locks, calls.unlocks);
}

}  // namespace
