#include "src/log/logproxymgrimpl.h"

#include <atomic>
#include <stdexcept>

#include "src/log/logproxyimpl.h"

namespace NS_BUNDLEMGR1 {

namespace {

// A proxy that stays. All of them form a list that starts in a static variable: leak
// checkers find those there whose manager is gone.
class KeptLogProxy : public LogProxyImpl {
public:
    explicit KeptLogProxy(const std::string& name) : LogProxyImpl(name), m_next(s_latest.load()) {
        while (!s_latest.compare_exchange_weak(m_next, this)) {
        }
    }

private:
    static std::atomic<LogProxy*> s_latest;

    LogProxy* m_next;
};

std::atomic<LogProxy*> KeptLogProxy::s_latest{nullptr};

}  // namespace

detail::Mutex LogProxyMgrImpl::s_mutex;
LogProxyMgrImpl* LogProxyMgrImpl::s_pRetired = nullptr;

LogProxyMgrImpl* LogProxyMgrImpl::Take() {
    const detail::Guard guard(s_mutex);
    if (s_pRetired == nullptr) return new LogProxyMgrImpl;
    LogProxyMgrImpl* const manager = s_pRetired;
    s_pRetired = manager->m_pNextRetired;
    return manager;
}

void LogProxyMgrImpl::Retire(LogProxyMgrImpl* manager) {
    const detail::Guard guard(s_mutex);
    manager->m_mapProxies.clear();
    manager->m_pNextRetired = s_pRetired;
    s_pRetired = manager;
}

LogProxyMgrImpl::LogProxyMgrImpl() = default;

LogProxyMgrImpl::~LogProxyMgrImpl() = default;

LogProxy* LogProxyMgrImpl::GetLogProxy(const char* name) {
    // Thrown here, since the wording differs between standard libraries.
    if (name == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
    const detail::Guard guard(s_mutex);
    LogProxy*& proxy = m_mapProxies[name];
    if (proxy == nullptr) proxy = new KeptLogProxy(name);
    return proxy;
}

void LogProxyMgrImpl::BeforeFork() {
    s_mutex.acquire();
}

void LogProxyMgrImpl::AfterFork() {
    s_mutex.release();
}

}  // namespace NS_BUNDLEMGR1
