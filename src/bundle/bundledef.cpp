#include <algorithm>

#include <bundlemgr/base.h>
#include <bundlemgr/bundle.h>
#include <bundlemgr/event.h>

#include "src/bundlemgr/bundleenvironment.h"
#include "src/configurator/serviceloader.h"
#include "src/configurator/servicerepository.h"
#include "src/corelog/assertion.h"
#include "src/corelog/corelog.h"
#include "src/corelog/usercode.h"
#include "src/lifetime/heldbundle.h"
#include "src/lifetime/livebundles.h"
#include "src/lifetime/liveservices.h"
#include "src/lifetime/servicecall.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr char kSourceFile[] = "bundledef";
constexpr char kServiceConfigurationFile[] = "svc.cfg";
constexpr int kNoConfiguration = -1;

// The records and assertions of this file carry fixed lines: operators' log filters
// go by them.
enum SourceLine : unsigned {
    kLineBeginExitThreads = 79,
    kLineFinishExitThreads = 90,
    kLineAssertService = 144,
    kLineAssertNewService = 148,
    kLineServiceNotFound = 178,
    kLineNoConfiguration = 230,
};

CoreLog g_log(kSourceFile);

// All records of this file go out at this level, those of failures included.
template <class... Args>
void Log(SourceLine line, const char* format, Args... args) {
    g_log.Print(line, LOG_LEVEL_INFO, format, args...);
}

std::string ServiceConfigurationPath(const std::string& bundleName) {
    const std::string directory = GetCfgDirPath();
    return directory.empty() ? "" : directory + "/" + bundleName + "/" + kServiceConfigurationFile;
}

bool IsManagerFinalising() {
    BundleMgr* const manager = BundleMgr::Instance();
    return manager != nullptr && manager->GetMgrPhase() == MGR_PHASE_FINI;
}

}  // namespace

BundleObject::BundleObject() : m_nState(BUNDLE_STATE_LOADED), m_pInterface(nullptr) {
    LiveBundles::Enter(this);
}

BundleObject::~BundleObject() {
    LiveBundles::Leave(this);
}

ServiceInterface* BundleObject::GetInterface() {
    return m_pInterface;
}

void BundleObject::SetInterface() {
    m_pInterface = nullptr;
}

void BundleObject::RemoveInterface() {
    delete m_pInterface;
    m_pInterface = nullptr;
}

int BundleObject::Init() {
    SetState(BUNDLE_STATE_INITED);
    return 0;
}

void BundleObject::Fini() {
    SetState(BUNDLE_STATE_FINIED);
}

void BundleObject::SetState(int state) {
    __atomic_store_n(&m_nState, state, __ATOMIC_RELEASE);
}

int BundleObject::GetState() const {
    return __atomic_load_n(&m_nState, __ATOMIC_ACQUIRE);
}

void BundleObject::RegisterServiceObject(const char* serviceName, ServiceObjectBase* service) {
    const HeldBundle held(m_lock);
    Assert(service != nullptr, "pServiceObject != 0", kSourceFile, kLineAssertService);
    const std::string strSvcName = serviceName;
    // Whoever is ending the one of before would have taken it out by now, but for having to
    // wait for something else.
    if (IsEndedElsewhere(strSvcName)) Forget(strSvcName);
    Assert(m_serviceObjectMap.find(strSvcName) == m_serviceObjectMap.end(),
           "m_serviceObjectMap.find(strSvcName) == m_serviceObjectMap.end()", kSourceFile, kLineAssertNewService);
    try {
        m_mapServiceIds[strSvcName] = LiveServices::IdOf(service);
        m_serviceObjectMap[strSvcName] = service;
        m_vecServiceNames.push_back(strSvcName);
    } catch (...) {
        Forget(strSvcName);
        throw;
    }
}

void BundleObject::RemoveServiceObject(const char* serviceName) {
    g_log.Prepare();
    LightEventMgr::Instance();
    const std::string strSvcName = serviceName;
    const HeldBundle held(m_lock);
    AwaitEndElsewhere(strSvcName);
    ServiceEntry entry;
    bool registered = IsRegistered(strSvcName);
    if (registered) {
        ServiceRepository repository;  // the bundle may be let go of meanwhile
        registered = IsRegistered(strSvcName);
        if (registered) entry = repository.Take(strSvcName);
    }
    if (!registered) {
        Log(kLineServiceNotFound, "Error: Remove service %s failed! Service not found!\n", serviceName);
        return;
    }
    const unsigned long id = IdOf(strSvcName);
    if (entry != nullptr) FinalizeService(strSvcName, *entry);
    if (IdOf(strSvcName) == id) Forget(strSvcName);  // or a successor has come meanwhile
    LightEventMgr* const events = LightEventMgr::Instance();
    if (events != nullptr) events->Push_Msg(LIGHT_EVENT_SERVICE_REMOVED, nullptr, 0);
}

void BundleObject::GetAllServiceObjects(std::map<std::string, ServiceObjectBase*>& out) {
    const HeldBundle held(m_lock);
    for (const auto& entry : m_serviceObjectMap) out[entry.first] = entry.second;
}

ServiceInterface* BundleObject::FindServiceInterface(const std::string& serviceName, void* (*cast)(ServiceInterface*),
                                                     void*& typed) {
    const HeldBundle held(m_lock);
    std::map<std::string, ServiceObjectBase*> services;
    GetAllServiceObjects(services);
    const auto found = services.find(serviceName);
    if (found == services.end()) return nullptr;
    const ServiceCall call(found->second, IdOf(serviceName), CallPurpose::kUse);
    ServiceInterface* const iface = call ? found->second->GetInterface() : nullptr;
    // Here, where the service, and with it the interface, cannot go.
    typed = iface != nullptr ? cast(iface) : nullptr;
    return typed != nullptr ? iface : nullptr;
}

// Those below are for threads that hold the lock.

// The number of the object that the name stands for; 0 where a bundle entered it by itself.
unsigned long BundleObject::IdOf(const std::string& serviceName) const {
    const auto registered = m_mapServiceIds.find(serviceName);
    return registered != m_mapServiceIds.end() ? registered->second : 0;
}

bool BundleObject::IsRegistered(const std::string& serviceName) const {
    return m_serviceObjectMap.find(serviceName) != m_serviceObjectMap.end() && !IsEndedElsewhere(serviceName);
}

// Another thread is ending the service, and has let go of this bundle meanwhile.
bool BundleObject::IsEndedElsewhere(const std::string& serviceName) const {
    const auto entry = m_serviceObjectMap.find(serviceName);
    return entry != m_serviceObjectMap.end() && LiveServices::IsRetiredElsewhere(entry->second, IdOf(serviceName));
}

void BundleObject::AwaitEndElsewhere(const std::string& serviceName) {
    if (InService::IsActive() || !IsEndedElsewhere(serviceName)) return;
    const ServiceObjectBase* const service = m_serviceObjectMap[serviceName];
    LiveServices::AwaitEnd(service, LiveServices::IdOf(service));
}

void BundleObject::Forget(const std::string& serviceName) {
    m_serviceObjectMap.erase(serviceName);
    m_mapServiceIds.erase(serviceName);
    const auto listed = std::find(m_vecServiceNames.begin(), m_vecServiceNames.end(), serviceName);
    if (listed != m_vecServiceNames.end()) m_vecServiceNames.erase(listed);
}

void BundleObject::WaitThreadExit() {
    g_log.Prepare();
    const HeldBundle held(m_lock);
    // A copy, since ending its threads may take a service out of the table.
    const std::vector<std::string> names(m_vecServiceNames.rbegin(), m_vecServiceNames.rend());
    for (const std::string& name : names) {
        if (std::find(m_vecServiceNames.begin(), m_vecServiceNames.end(), name) == m_vecServiceNames.end()) continue;
        Log(kLineBeginExitThreads, "\n===== Begin to Exit Threads of -[ %s -- %s ] =====\n", GetName().c_str(),
            name.c_str());
        ExitThreadsOf(name);
        Log(kLineFinishExitThreads, "\n===== Finish to Exit Threads of -[ %s -- %s ] =====\n", GetName().c_str(),
            name.c_str());
    }
}

void BundleObject::ExitThreadsOf(const std::string& serviceName) {
    const auto entry = m_serviceObjectMap.find(serviceName);
    if (entry == m_serviceObjectMap.end()) return;
    ServiceObjectBase* const service = entry->second;
    const ServiceCall call(service, IdOf(serviceName), CallPurpose::kEndThreads);
    if (!call) return;
    Contain(g_log, "ExitThreads", UserCode{"service", serviceName.c_str()}, [service] { service->ExitThreads(); });
}

int BundleObject::LoadAllServiceObjects() {
    const std::string path = ServiceConfigurationPath(GetName());
    if (path.empty()) {
        Log(kLineNoConfiguration, "\n===== get svc cfg is empty, proc will exit and stop to init Service =====\n");
        return kNoConfiguration;
    }
    ServiceLoader loader(*this);
    SVC_Config_Param configuration(path.c_str());
    for (const ServiceDirective& service : configuration.GetServices()) {
        const int result = loader.Load(service);
        if (result != 0) return result;
    }
    return 0;
}

void BundleObject::UnLoadAllServiceObjects() {
    g_log.Prepare();
    LightEventMgr::Instance();  // a service may remove itself under the lock below
    const HeldBundle held(m_lock);
    for (const std::string& name : NamesToUnload()) {
        AwaitEndElsewhere(name);
        const std::vector<ServiceEntry> entries = ServiceRepository().TakeActive(name);
        FinalizeServices(name, entries);
    }
}

// A copy, newest first, since a service's fini may take it out of the table. At the end, while
// any services are still being loaded, one may be on its way that is not in the table yet: the
// configurator is waited for, as the loading does before it looks for a stop.
std::vector<std::string> BundleObject::NamesToUnload() {
    const bool mayGrow = IsManagerFinalising() && ServiceLoader::Any();
    if (m_vecServiceNames.empty() && !mayGrow) return {};
    const ServiceRepository turn;
    return {m_vecServiceNames.rbegin(), m_vecServiceNames.rend()};
}

}  // namespace NS_BUNDLEMGR1
