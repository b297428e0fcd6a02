#include <memory>
#include <utility>

#include <bundlemgr/kit.h>

namespace NS_BUNDLEMGR1 {

Service::Service(const char* bundleName, const char* serviceName) : ServiceObjectBase(bundleName, serviceName) {}

Service::~Service() {
    Service::RemoveInterface();
}

int Service::fini() {
    ExitThreads();
    RemoveInterface();
    return ServiceObjectBase::fini();
}

void Service::ExitThreads() {}

void Service::RemoveInterface() {
    // First of all nobody finds it here any more.
    const std::unique_ptr<ServiceInterface> iface(std::exchange(m_pInterface, nullptr));
    RemoveIFBuf(m_strServiceName, iface.get());
}

void Service::Own(std::unique_ptr<ServiceInterface> iface) {
    RemoveInterface();
    m_pInterface = iface.release();
}

}  // namespace NS_BUNDLEMGR1
