#include "src/kit/kitlock.h"

#include <pthread.h>

#include <atomic>

namespace NS_BUNDLEMGR1 {

namespace {

detail::Mutex g_mutex;
std::atomic<unsigned long> g_forks{0};

// The mutex stays held until one of the two functions below.
void BeforeFork() ZO_NO_THREAD_SAFETY_ANALYSIS {
    g_mutex.acquire();
}

void AfterForkInParent() ZO_NO_THREAD_SAFETY_ANALYSIS {
    g_mutex.release();
}

void AfterForkInChild() ZO_NO_THREAD_SAFETY_ANALYSIS {
    ++g_forks;
    g_mutex.release();
}

[[maybe_unused]] const int s_nForkHandlers = pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);

}  // namespace

detail::Mutex& KitLock::Mutex() {
    return g_mutex;
}

unsigned long KitLock::Forks() {
    return g_forks.load();
}

}  // namespace NS_BUNDLEMGR1
