#include "src/corelog/corelog.h"

#include <cstdarg>
#include <exception>
#include <new>

#include <bundlemgr/bundlemgr.h>

#include "src/corelog/losscounter.h"
#include "src/corelog/writingscope.h"
#include "src/platform/standardoutput.h"
#include "src/platform/wallclock.h"

namespace NS_BUNDLEMGR1 {

namespace {

// Gives access to the manager without creating one.
class ExistingBundleMgr : public BundleMgr {
public:
    static BundleMgr* Get() { return m_pInstance.load(std::memory_order_acquire); }
};

// Stands in for one message that there is no memory for.
class OutOfMemoryLogProxy : public DefaultLogProxy {
public:
    void Printf(int, const char* format, ...) override __attribute__((format(printf, 3, 4))) {
        LossCounter::Lost(1, WallClock());
        PrintOutText(format != nullptr ? format : "");
    }
};

// Needs no memory, and is never destroyed, since others may hold it.
template <class Proxy>
LogProxy* StandIn() {
    alignas(Proxy) static unsigned char s_place[sizeof(Proxy)];
    static LogProxy* const s_proxy = new (s_place) Proxy;
    return s_proxy;
}

}  // namespace

void CoreLog::PrintAt(OwnLogProxy* proxy, unsigned long line, int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    proxy->VPrintfAt(m_sourceFile, line, level, format, args);
    va_end(args);
}

LogProxy* CoreLog::Proxy() {
    LogProxy* const cached = m_pCache.load(std::memory_order_acquire);
    return cached != nullptr ? cached : FetchProxy();
}

LogProxy* CoreLog::FetchProxy() {
    try {
        return FetchFromManager();
    } catch (const std::exception&) {
        return StandIn<OutOfMemoryLogProxy>();
    }
}

LogProxy* CoreLog::FetchFromManager() {
    // Creating the manager would take ACE's static-object lock after those of the log.
    const bool isWriting = WritingScope::IsActive();
    BundleMgr* const bundleMgr = isWriting ? ExistingBundleMgr::Get() : BundleMgr::Instance();
    if (isWriting && bundleMgr == nullptr) return StandIn<DefaultLogProxy>();
    LogProxyMgr* const logProxyMgr = bundleMgr != nullptr ? bundleMgr->GetLogProxyMgr() : nullptr;
    LogProxy* const proxy = logProxyMgr != nullptr ? logProxyMgr->GetLogProxy("BundleMgrCore") : nullptr;
    if (proxy != nullptr) {
        // Two threads may do this at once; both have the same proxy.
        proxy->SetBundleName("BundleMgr");
        proxy->SetServiceName("Core");
        m_pOwn.store(dynamic_cast<OwnLogProxy*>(proxy), std::memory_order_relaxed);
        m_pCache.store(proxy, std::memory_order_release);
        return proxy;
    }
    // Kept for good, even if a manager appears later.
    LogProxy* const standIn = StandIn<DefaultLogProxy>();
    LogProxy* expected = nullptr;
    return m_pCache.compare_exchange_strong(expected, standIn, std::memory_order_acq_rel) ? standIn : expected;
}

void CoreLog::Prepare() {
    Proxy();
    LogProxyDebugInfoBufMgr::Prepare();
}

}  // namespace NS_BUNDLEMGR1
