// The log proxies of the process, by name.
#pragma once

#include <map>
#include <string>

#include <ace/Thread_Mutex.h>

#include "bundlemgr/log.h"

namespace NS_BUNDLEMGR1 {

/// Creates a `LogProxyImpl` for each name on its first request. Thread-safe.
///
/// The proxies are not deleted with the manager: whoever holds one may keep using it.
class LogProxyMgrImpl : public LogProxyMgr {
public:
    LogProxyMgrImpl();
    LogProxy* GetLogProxy(const char* name) override;
    ~LogProxyMgrImpl() override;

private:
    std::map<std::string, LogProxy*> m_mapProxies;
    ACE_Thread_Mutex m_mutex;  // guards m_mapProxies
};

}  // namespace NS_BUNDLEMGR1
