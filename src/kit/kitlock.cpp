#include "src/kit/kitlock.h"

#include <pthread.h>

#include <atomic>

namespace NS_BUNDLEMGR1 {

namespace {

std::mutex g_mutex;
std::atomic<unsigned long> g_forks{0};

void BeforeFork() {
    g_mutex.lock();
}

void AfterForkInParent() {
    g_mutex.unlock();
}

void AfterForkInChild() {
    ++g_forks;
    g_mutex.unlock();
}

[[maybe_unused]] const int s_nForkHandlers = pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);

}  // namespace

std::mutex& KitLock::Mutex() {
    return g_mutex;
}

unsigned long KitLock::Forks() {
    return g_forks.load();
}

}  // namespace NS_BUNDLEMGR1
