#include <cstdarg>
#include <exception>
#include <new>

#include <bundlemgr/bundlemgr.h>
#include <bundlemgr/kit.h>

namespace NS_BUNDLEMGR1 {

namespace {

// Needs no memory, and is never destroyed, since others may hold it.
LogProxy* StandIn() {
    alignas(DefaultLogProxy) static unsigned char s_place[sizeof(DefaultLogProxy)];
    static LogProxy* const s_proxy = new (s_place) DefaultLogProxy;
    return s_proxy;
}

}  // namespace

Log::Log(const Log& other) noexcept : Log(other.m_name, other.m_bundle, other.m_service) {}

void Log::Print(const char* file, unsigned long line, int level, const char* format, ...) const {
    va_list args;
    va_start(args, format);
    Proxy()->VPrintfAt(file, line, level, format, args);
    va_end(args);
}

LogProxy* Log::Proxy() const {
    LogProxy* const known = m_proxy.load(std::memory_order_acquire);
    return known != nullptr ? known : FetchProxy();
}

// Two threads may do this at once; both have the same proxy.
LogProxy* Log::FetchProxy() const {
    try {
        BundleMgr* const bundleMgr = BundleMgr::Instance();
        LogProxyMgr* const logProxyMgr = bundleMgr != nullptr ? bundleMgr->GetLogProxyMgr() : nullptr;
        LogProxy* const proxy = logProxyMgr != nullptr ? logProxyMgr->GetLogProxy(m_name) : nullptr;
        if (proxy == nullptr) return StandIn();
        if (m_bundle != nullptr) proxy->SetBundleName(m_bundle);
        if (m_service != nullptr) proxy->SetServiceName(m_service);
        m_proxy.store(proxy, std::memory_order_release);
        return proxy;
    } catch (const std::exception&) {
        return StandIn();
    }
}

}  // namespace NS_BUNDLEMGR1
