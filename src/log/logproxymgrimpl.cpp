#include "log/logproxymgrimpl.h"

#include <stdexcept>

#include <ace/Guard_T.h>

#include "log/logproxyimpl.h"

namespace NS_BUNDLEMGR1 {

LogProxyMgrImpl::LogProxyMgrImpl() = default;

LogProxyMgrImpl::~LogProxyMgrImpl() = default;

LogProxy* LogProxyMgrImpl::GetLogProxy(const char* name) {
    // Thrown here, since the wording differs between standard libraries.
    if (name == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
    ACE_Guard<ACE_Thread_Mutex> guard(m_mutex);
    LogProxy*& proxy = m_mapProxies[name];
    if (proxy == nullptr) proxy = new LogProxyImpl(name);
    return proxy;
}

}  // namespace NS_BUNDLEMGR1
