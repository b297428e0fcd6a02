#include "log/logfork.h"

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>
#include <pthread.h>

#include "bundlemgr/log.h"
#include "log/logproxyimpl.h"
#include "log/logproxymgrimpl.h"

namespace NS_BUNDLEMGR1 {

namespace {

[[maybe_unused]] const int g_registered = LogFork::Register();

// A thread that held it does not exist in the child, and the one that forked is no longer
// taken for its owner. Not taken before the fork: it may be held by one who waits for the
// thread that forks.
void FreeStaticObjectLock() {
    ACE_Recursive_Thread_Mutex& lock = *ACE_Static_Object_Lock::instance();
    if (lock.tryacquire() == 0) {
        lock.release();
    } else {
        ACE_OS::recursive_mutex_init(&lock.lock());
    }
}

}  // namespace

int LogFork::Register() {
    return pthread_atfork(Before, InParent, InChild);
}

// In the order of the locks.
void LogFork::Before() {
    LogProxyDebugInfoBufMgr::BeforeFork();
    LogProxyMgrImpl::BeforeFork();
    LogProxyImpl::BeforeFork();
}

void LogFork::InParent() {
    LogProxyImpl::AfterFork();
    LogProxyMgrImpl::AfterFork();
    LogProxyDebugInfoBufMgr::AfterForkInParent();
}

void LogFork::InChild() {
    FreeStaticObjectLock();
    LogProxyImpl::AfterFork();
    LogProxyMgrImpl::AfterFork();
    LogProxyDebugInfoBufMgr::AfterForkInChild();
}

}  // namespace NS_BUNDLEMGR1
