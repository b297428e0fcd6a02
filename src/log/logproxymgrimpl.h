// The log proxies of the process, by name.
#pragma once

#include <map>
#include <string>

#include <bundlemgr/detail/mutex.h>
#include <bundlemgr/log.h>

namespace NS_BUNDLEMGR1 {

/// Creates a `LogProxyImpl` for each name on its first request. Thread-safe.
///
/// The proxies are not deleted with the manager: whoever holds one may keep using it.
class LogProxyMgrImpl : public LogProxyMgr {
public:
    /// @return a manager without proxies; `Retire` takes it back
    /// @throws std::bad_alloc
    static LogProxyMgrImpl* Take();

    /// Lays a manager aside. It is never deleted: another thread may have fetched it and be
    /// about to ask for a proxy.
    static void Retire(LogProxyMgrImpl* manager);

    LogProxyMgrImpl();
    LogProxy* GetLogProxy(const char* name) override;
    ~LogProxyMgrImpl() override;

    /// @name Around fork
    /// No proxy is being made when the child is.
    /// @{
    static void BeforeFork() ZO_ACQUIRE(s_mutex);
    static void AfterFork() ZO_RELEASE(s_mutex);
    /// @}

private:
    static detail::Mutex s_mutex;  // of all managers, so that a fork can take it
    static LogProxyMgrImpl* s_pRetired ZO_GUARDED_BY(s_mutex);

    std::map<std::string, LogProxy*> m_mapProxies ZO_GUARDED_BY(s_mutex);
    LogProxyMgrImpl* m_pNextRetired ZO_GUARDED_BY(s_mutex) = nullptr;
};

}  // namespace NS_BUNDLEMGR1
