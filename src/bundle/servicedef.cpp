#include <bundlemgr/bundle.h>

#include "src/configurator/servicerepository.h"
#include "src/corelog/corelog.h"
#include "src/lifetime/liveservices.h"
#include "src/lifetime/servicebirth.h"

namespace NS_BUNDLEMGR1 {

namespace {

// Fixed, since operators' log filters go by them.
constexpr int kLineNoBundle = 33;
constexpr int kLineFini = 55;

CoreLog g_log("servicedef");

// What services in the field were compiled with. Whatever else the library has to know about a
// service, it keeps in LiveServices.
struct ServiceLayout : public ACE_Service_Object {
    ServiceInterface* iface;
    std::string name;
    std::string bundle;
};
static_assert(sizeof(ServiceObjectBase) == sizeof(ServiceLayout), "the base of every service keeps its size");

}  // namespace

ServiceObjectBase::ServiceObjectBase(const char* bundleName, const char* serviceName)
    : m_pInterface(nullptr), m_strServiceName(serviceName), m_strBundleName(bundleName) {
    BundleObject* bundle = ServiceBirth::BundleNamed(m_strBundleName);
    if (bundle == nullptr) bundle = BundleMgr::Instance()->GetBundle(m_strBundleName);
    LiveServices::Add(this);
    // For fini, which the configurator may call under its lock at the end of the process.
    g_log.Prepare();
    if (bundle == nullptr) {
        g_log.Print(kLineNoBundle, LOG_LEVEL_INFO, "[ServiceObjectBase] Call GetBundle() get bundle null.%s,%s",
                    serviceName, bundleName);
        return;
    }
    try {
        bundle->RegisterServiceObject(serviceName, this);
    } catch (...) {
        LiveServices::Remove(this);
        throw;
    }
}

ServiceObjectBase::~ServiceObjectBase() {
    LiveServices::Remove(this);
}

void ServiceObjectBase::UnRegistSvc() {}

const char* ServiceObjectBase::GetName() const {
    return m_strServiceName.c_str();
}

ServiceInterface* ServiceObjectBase::GetInterface() {
    return m_pInterface;
}

void ServiceObjectBase::SetInterface() {}

void ServiceObjectBase::RemoveInterface() {
    delete m_pInterface;
    m_pInterface = nullptr;
}

int ServiceObjectBase::fini() {
    // As a rule, whoever removes the service, or its destructor, tells that it is gone. Only for
    // one that the configurator frees without its destructor this is the last chance.
    const bool isMade = !ServiceBirth::Any();
    if (isMade && LiveServices::MayVanish(this) && !ServiceRepository::MayKeep(this)) LiveServices::Remove(this);
    g_log.Print(kLineFini, LOG_LEVEL_INFO, "\n===== Start to Finalize -[ %s ] =====\n", GetName());
    return 0;
}

}  // namespace NS_BUNDLEMGR1
