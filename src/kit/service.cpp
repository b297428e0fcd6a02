#include <set>
#include <utility>

#include <bundlemgr/kit.h>

#include "src/kit/kitlock.h"

namespace NS_BUNDLEMGR1 {

namespace {

// Names whose interface was withdrawn: proxies do not search for those again, but take what is
// set. Never destroyed, and made on first use, as the registry itself.
class WithdrawnNames {
public:
    static void Add(const std::string& name) {
        const KitLock lock;
        Names().insert(name);
    }

    static bool Take(const std::string& name) {
        const KitLock lock;
        return Names().erase(name) != 0;
    }

private:
    static std::set<std::string>& Names() {
        static auto* const names = new std::set<std::string>;
        return *names;
    }
};

}  // namespace

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
    if (m_pInterface == nullptr) return;
    SetIFBuf(m_strServiceName, nullptr);
    WithdrawnNames::Add(m_strServiceName);
    ServiceObjectBase::RemoveInterface();
}

void Service::Own(std::unique_ptr<ServiceInterface> iface) {
    RemoveInterface();
    m_pInterface = iface.release();
    if (WithdrawnNames::Take(m_strServiceName)) SetIFBuf(m_strServiceName, m_pInterface);
}

}  // namespace NS_BUNDLEMGR1
