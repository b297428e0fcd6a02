#include <map>
#include <new>
#include <utility>

#include <bundlemgr/kit.h>

#include "src/kit/kitlock.h"

namespace NS_BUNDLEMGR1 {

namespace {

// The names under which interfaces are published, and whether the latest was withdrawn: proxies
// do not search for such a name again, but take what is set. Never destroyed, and made on first
// use, as the registry itself.
class PublishedNames {
public:
    /// @return whether an interface of that name was withdrawn
    /// @throws std::bad_alloc
    static bool Add(const std::string& name) {
        const KitLock lock;
        return std::exchange(Names()[name], false);
    }

    static void SetWithdrawn(const std::string& name) {
        const KitLock lock;
        Names()[name] = true;
    }

private:
    static std::map<std::string, bool>& Names() {
        static auto* const names = new std::map<std::string, bool>;
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
    try {
        SetIFBuf(m_strServiceName, nullptr);
        PublishedNames::SetWithdrawn(m_strServiceName);
    } catch (const std::bad_alloc&) {
        // The name is new to them: nobody has found the interface.
    }
    ServiceObjectBase::RemoveInterface();
}

// Whatever takes memory comes first: a destructor could not report that there is none.
void Service::Own(std::unique_ptr<ServiceInterface> iface) {
    RemoveInterface();
    CheckIFBuf(m_strServiceName);
    const bool wasWithdrawn = PublishedNames::Add(m_strServiceName);
    m_pInterface = iface.release();
    if (wasWithdrawn) SetIFBuf(m_strServiceName, m_pInterface);
}

}  // namespace NS_BUNDLEMGR1
