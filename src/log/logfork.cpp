#include "src/log/logfork.h"

#include <pthread.h>

#include <bundlemgr/log.h>

#include "src/log/logproxymgrimpl.h"
#include "src/log/sourceposition.h"
#include "src/platform/calendar.h"
#include "src/platform/staticobjectlock.h"

namespace NS_BUNDLEMGR1 {

namespace {

[[maybe_unused]] const int g_registered = LogFork::Register();

}  // namespace

int LogFork::Register() {
    return pthread_atfork(Before, InParent, InChild);
}

// In the order of the locks, which stay held until one of the two functions below.
void LogFork::Before() ZO_NO_THREAD_SAFETY_ANALYSIS {
    LogProxyDebugInfoBufMgr::BeforeFork();
    LogProxyMgrImpl::BeforeFork();
    SourcePosition::BeforeFork();
    Calendar::BeforeFork();
}

void LogFork::InParent() ZO_NO_THREAD_SAFETY_ANALYSIS {
    Calendar::AfterFork();
    SourcePosition::AfterFork();
    LogProxyMgrImpl::AfterFork();
    LogProxyDebugInfoBufMgr::AfterForkInParent();
}

void LogFork::InChild() ZO_NO_THREAD_SAFETY_ANALYSIS {
    Calendar::AfterFork();
    FreeStaticObjectLockInChild();
    SourcePosition::AfterFork();
    LogProxyMgrImpl::AfterFork();
    LogProxyDebugInfoBufMgr::AfterForkInChild();
}

}  // namespace NS_BUNDLEMGR1
