#include "log/logproxy.h"

#include "bundlemgr/bundlemgr.h"
#include "log/writingscope.h"
#include "platform/standardoutput.h"

namespace NS_BUNDLEMGR1 {

namespace {

// Knows the manager without creating one.
class ExistingBundleMgr : public BundleMgr {
public:
    static bool IsThere() { return m_pInstance.load(std::memory_order_acquire) != nullptr; }
};

}  // namespace

LogProxy::~LogProxy() = default;

LogProxyMgr::~LogProxyMgr() = default;

DefaultLogProxy::~DefaultLogProxy() = default;

void DefaultLogProxy::Write(int, const char*) {}

void DefaultLogProxy::WriteText(const char*) {}

void DefaultLogProxy::Printf(int, const char* format, ...) {
    PrintOutText(format != nullptr ? format : "");
}

void DefaultLogProxy::PrintfText(const char*, ...) {}

bool DefaultLogProxy::IsLevelEnabled(int) {
    return false;
}

bool DefaultLogProxy::DisableLevel(int) {
    return false;
}

bool DefaultLogProxy::EnableLevel(int) {
    return false;
}

bool DefaultLogProxy::DisableAllLevels() {
    return false;
}

bool DefaultLogProxy::EnableAllLevels() {
    return false;
}

void DefaultLogProxy::FlushDebugInfo() {}

bool DefaultLogProxy::SetDebugOutputMode(int) {
    return false;
}

void DefaultLogProxy::SetPosition(const char*, unsigned long) {}

void DefaultLogProxy::SetBundleName(const char*) {}

void DefaultLogProxy::SetServiceName(const char*) {}

std::string DefaultLogProxy::GetName() const {
    return "DefaultLogProxy";
}

LogProxy* CoreLog::Proxy() {
    LogProxy* const cached = m_pCache.load(std::memory_order_acquire);
    return cached != nullptr ? cached : FetchProxy();
}

LogProxy* CoreLog::FetchProxy() {
    // Creating the manager would take ACE's static-object lock after those of the log.
    if (WritingScope::IsActive() && !ExistingBundleMgr::IsThere()) {
        static LogProxy* const s_meanwhile = new DefaultLogProxy;
        return s_meanwhile;
    }
    BundleMgr* const bundleMgr = BundleMgr::Instance();
    LogProxyMgr* const logProxyMgr = bundleMgr != nullptr ? bundleMgr->GetLogProxyMgr() : nullptr;
    LogProxy* const proxy = logProxyMgr != nullptr ? logProxyMgr->GetLogProxy("BundleMgrCore") : nullptr;
    if (proxy != nullptr) {
        // Two threads may do this at once; both have the same proxy.
        proxy->SetBundleName("BundleMgr");
        proxy->SetServiceName("Core");
        m_pCache.store(proxy, std::memory_order_release);
        return proxy;
    }
    // Kept for good, even if a manager appears later; never deleted, since others
    // may hold it.
    LogProxy* const fallback = new DefaultLogProxy;
    LogProxy* expected = nullptr;
    if (m_pCache.compare_exchange_strong(expected, fallback, std::memory_order_acq_rel)) return fallback;
    delete fallback;
    return expected;
}

void CoreLog::Prepare() {
    Proxy();
    LogProxyDebugInfoBufMgr::Prepare();
}

}  // namespace NS_BUNDLEMGR1
