#include "src/log/logproxymgrimpl.h"

#include <atomic>
#include <mutex>
#include <stdexcept>

#include "src/log/logproxyimpl.h"

namespace NS_BUNDLEMGR1 {

namespace {

std::mutex g_mapMutex;  // of all managers, so that a fork can take it
LogProxyMgrImpl* g_retired = nullptr;

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

LogProxyMgrImpl* LogProxyMgrImpl::Take() {
    const std::lock_guard<std::mutex> guard(g_mapMutex);
    if (g_retired == nullptr) return new LogProxyMgrImpl;
    LogProxyMgrImpl* const manager = g_retired;
    g_retired = manager->m_pNextRetired;
    return manager;
}

void LogProxyMgrImpl::Retire(LogProxyMgrImpl* manager) {
    const std::lock_guard<std::mutex> guard(g_mapMutex);
    manager->m_mapProxies.clear();
    manager->m_pNextRetired = g_retired;
    g_retired = manager;
}

LogProxyMgrImpl::LogProxyMgrImpl() = default;

LogProxyMgrImpl::~LogProxyMgrImpl() = default;

LogProxy* LogProxyMgrImpl::GetLogProxy(const char* name) {
    // Thrown here, since the wording differs between standard libraries.
    if (name == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
    const std::lock_guard<std::mutex> guard(g_mapMutex);
    LogProxy*& proxy = m_mapProxies[name];
    if (proxy == nullptr) proxy = new KeptLogProxy(name);
    return proxy;
}

void LogProxyMgrImpl::BeforeFork() {
    g_mapMutex.lock();
}

void LogProxyMgrImpl::AfterFork() {
    g_mapMutex.unlock();
}

}  // namespace NS_BUNDLEMGR1
