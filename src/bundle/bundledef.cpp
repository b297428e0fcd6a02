#include <algorithm>
#include <cstdlib>

#include <ace/Assert.h>
#include <ace/Service_Config.h>

#include "bundle/currentexception.h"
#include "bundle/heldbundle.h"
#include "bundle/livebundles.h"
#include "bundle/liveservices.h"
#include "bundle/nestedlock.h"
#include "bundle/servicelibraries.h"
#include "bundle/servicerepository.h"
#include "bundlemgr/base.h"
#include "bundlemgr/bundle.h"
#include "bundlemgr/bundleenvironment.h"
#include "bundlemgr/event.h"
#include "log/logproxy.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr char kSourceFile[] = "bundledef";
constexpr char kServiceConfigurationFile[] = "svc.cfg";
constexpr int kStoppedByManager = -1;
constexpr int kNoConfiguration = -1;
constexpr int kStoppedByBundle = 1;
constexpr int kInitThrew = -1;

// The records and assertions of this file carry fixed lines: operators' log filters
// go by them.
enum SourceLine : unsigned {
    kLineBeginExitThreads = 79,
    kLineFinishExitThreads = 90,
    kLineAssertService = 144,
    kLineAssertNewService = 148,
    kLineServiceNotFound = 178,
    kLineNoConfiguration = 230,
    kLineBundleFinalised = 251,
    kLineInitService = 257,
    kLineInitFailed = 262,
    kLineServiceReady = 267,
};

CoreLog g_log(kSourceFile);

// All records of this file go out at this level, those of failures included.
template <class... Args>
void Log(SourceLine line, const char* format, Args... args) {
    g_log.Print(line, LOG_LEVEL_INFO, format, args...);
}

void Assert(bool condition, const char* expression, SourceLine line) {
    if (condition) return;
    __ace_assert(kSourceFile, static_cast<int>(line), expression);
    std::abort();  // for a host that has masked ACE's log, which aborts only what it prints
}

void ReportThrown(const char* operation, const std::string& serviceName, const std::string& what) {
    g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Error: %s of service %s threw: %s\n", operation, serviceName.c_str(),
                what.c_str());
}

// A service that throws must not keep the others from being ended.
template <class Action>
void Contain(const char* operation, const std::string& serviceName, Action action) {
    ReportException(action, [&](const std::string& what) { ReportThrown(operation, serviceName, what); });
}

std::string ServiceConfigurationPath(const std::string& bundleName) {
    const std::string directory = GetCfgDirPath();
    return directory.empty() ? "" : directory + "/" + bundleName + "/" + kServiceConfigurationFile;
}

bool IsManagerFinalising() {
    BundleMgr* const manager = BundleMgr::Instance();
    return manager != nullptr && manager->GetMgrPhase() == MGR_PHASE_FINI;
}

void Finalize(const std::string& serviceName, ACE_Service_Type& entry) {
    const ServiceObjectBase* const service = ServiceRepository::ObjectOf(entry);
    const unsigned long id = LiveServices::IdOf(service);
    ServiceRepository::Finalize(entry, [&](const std::string& what) { ReportThrown("fini", serviceName, what); });
    // Without an exterminator the object was freed without its destructor.
    LiveServices::Leave(service, id);
}

void FinalizeAll(const std::string& serviceName, const std::vector<ServiceEntry>& entries) {
    for (const ServiceEntry& entry : entries) Finalize(serviceName, *entry);
}

// The failed service may be gone without its destructor, whatever name it registered
// under; those that it brought up in its turn are not.
void ForgetFailed(const std::string& serviceName, const ServiceBirth& birth, const ServiceRepository& repository) {
    for (const ServiceBirth::Child& child : birth.Children()) {
        if (!repository.HoldsUnderAnotherName(child.service, serviceName)) LiveServices::Leave(child.service, child.id);
    }
}

// Has the configurator create and initialise a service. Any result of its init but 0
// is a failure, where the configurator itself knows only -1.
int ProcessDirective(const std::string& serviceName, const std::string& directive, const std::string& bundleName,
                     BundleObject* bundle) {
    const ServiceBirth birth(bundleName, bundle);
    // The configurator makes room for a service of the same name, another bundle's
    // perhaps, by finalising the one that is there; in a destructor, where an exception
    // would end the process.
    const std::vector<ServiceEntry> namesakes = ServiceRepository().TakeActive(serviceName);
    FinalizeAll(serviceName, namesakes);
    ServiceLibraries::Note(directive);
    // The configurator's own, for as long as it works. Waited for here, where the manager's
    // table can be let go of.
    const ServiceRepository repository;
    int result = kInitThrew;
    Contain("Initialisation", serviceName,
            [&result, &directive] { result = ACE_Service_Config::current()->process_directive(directive.c_str()); });
    if (result == 0) result = repository.InitResult(serviceName);
    if (result != 0) ForgetFailed(serviceName, birth, repository);
    birth.Publish();
    return result;
}

}  // namespace

BundleObject::BundleObject() : m_nState(BUNDLE_STATE_LOADED), m_pInterface(nullptr), m_nLockDepth(0) {
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
    const NestedGuard guard(m_lock, m_nLockDepth);
    Assert(service != nullptr, "pServiceObject != 0", kLineAssertService);
    const std::string strSvcName = serviceName;
    Assert(m_serviceObjectMap.find(strSvcName) == m_serviceObjectMap.end(),
           "m_serviceObjectMap.find(strSvcName) == m_serviceObjectMap.end()", kLineAssertNewService);
    m_vecServiceNames.push_back(strSvcName);
    m_serviceObjectMap[strSvcName] = service;
    m_mapServiceIds[strSvcName] = LiveServices::IdOf(service);
}

void BundleObject::RemoveServiceObject(const char* serviceName) {
    g_log.Prepare();
    LightEventMgr::Instance();
    const std::string strSvcName = serviceName;
    const NestedGuard guard(m_lock, m_nLockDepth);
    const HeldBundle held(this);
    ServiceEntry entry;
    bool registered = false;
    {
        ServiceRepository repository(NestedHold(m_lock, m_nLockDepth));
        registered = m_serviceObjectMap.find(strSvcName) != m_serviceObjectMap.end();
        if (registered) entry = repository.Take(strSvcName);
    }
    if (!registered) {
        Log(kLineServiceNotFound, "Error: Remove service %s failed! Service not found!\n", serviceName);
        return;
    }
    if (entry != nullptr) Finalize(strSvcName, *entry);
    m_serviceObjectMap.erase(strSvcName);
    m_mapServiceIds.erase(strSvcName);
    const auto listed = std::find(m_vecServiceNames.begin(), m_vecServiceNames.end(), strSvcName);
    if (listed != m_vecServiceNames.end()) m_vecServiceNames.erase(listed);
    LightEventMgr* const events = LightEventMgr::Instance();
    if (events != nullptr) events->Push_Msg(LIGHT_EVENT_SERVICE_REMOVED, nullptr, 0);
}

void BundleObject::GetAllServiceObjects(std::map<std::string, ServiceObjectBase*>& out) {
    const NestedGuard guard(m_lock, m_nLockDepth);
    for (const auto& entry : m_serviceObjectMap) out[entry.first] = entry.second;
}

ServiceInterface* BundleObject::FindServiceInterface(const std::string& serviceName) {
    // Held over the call into the service, lest it be destroyed meanwhile.
    const NestedGuard guard(m_lock, m_nLockDepth);
    const HeldBundle held(this);
    std::map<std::string, ServiceObjectBase*> services;
    GetAllServiceObjects(services);
    const auto found = services.find(serviceName);
    if (found == services.end() || !IsLive(serviceName, found->second)) return nullptr;
    return found->second->GetInterface();
}

// The lock must be held for as long as the answer is to be trusted.
bool BundleObject::IsLive(const std::string& serviceName, const ServiceObjectBase* service) const {
    const unsigned long id = LiveServices::IdOf(service);
    const auto registered = m_mapServiceIds.find(serviceName);
    return id != 0 && (registered == m_mapServiceIds.end() || registered->second == id);
}

void BundleObject::WaitThreadExit() {
    g_log.Prepare();
    const NestedGuard guard(m_lock, m_nLockDepth);
    const HeldBundle held(this);
    // A copy, since ending its threads may take a service out of the table.
    const std::vector<std::string> names(m_vecServiceNames.rbegin(), m_vecServiceNames.rend());
    for (const std::string& name : names) {
        if (std::find(m_vecServiceNames.begin(), m_vecServiceNames.end(), name) == m_vecServiceNames.end()) continue;
        Log(kLineBeginExitThreads, "\n===== Begin to Exit Threads of -[ %s -- %s ] =====\n", GetName().c_str(),
            name.c_str());
        const auto entry = m_serviceObjectMap.find(name);
        if (entry != m_serviceObjectMap.end() && IsLive(name, entry->second)) {
            Contain("ExitThreads", name, [service = entry->second] { service->ExitThreads(); });
        }
        Log(kLineFinishExitThreads, "\n===== Finish to Exit Threads of -[ %s -- %s ] =====\n", GetName().c_str(),
            name.c_str());
    }
}

int BundleObject::LoadAllServiceObjects() {
    const std::string bundleName = GetName();
    const std::string path = ServiceConfigurationPath(bundleName);
    if (path.empty()) {
        Log(kLineNoConfiguration, "\n===== get svc cfg is empty, proc will exit and stop to init Service =====\n");
        return kNoConfiguration;
    }
    SVC_Config_Param configuration(path.c_str());
    for (const std::string& name : configuration.GetServiceNames()) {
        if (IsManagerFinalising()) return kStoppedByManager;
        const std::string directive = configuration.GetServiceDirective(name.c_str());
        if (directive.empty()) continue;
        if (GetState() == BUNDLE_STATE_FINIED) {
            Log(kLineBundleFinalised, "\n===== proc will exit and stop to init Service -[ %s ] =====\n", name.c_str());
            return kStoppedByBundle;
        }
        Log(kLineInitService, "\n===== Init Service -[ %s ] =====\n", name.c_str());
        // The manager is not asked: one that is finalising answers when it has finished, and
        // may be waiting for this thread.
        const int result = ProcessDirective(name, directive, bundleName, LiveBundles::Registered(bundleName));
        if (result != 0) {
            Log(kLineInitFailed, "\n===== Init Failed -[ %s ][ params:%s ][ err: %d ] =====\n", name.c_str(),
                directive.c_str(), result);
            RemoveServiceObject(name.c_str());
            return result;
        }
        Log(kLineServiceReady, "\n===== Service Ready -[ %s ] =====\n", name.c_str());
    }
    return 0;
}

void BundleObject::UnLoadAllServiceObjects() {
    g_log.Prepare();
    LightEventMgr::Instance();  // a service may remove itself under the lock below
    const NestedGuard guard(m_lock, m_nLockDepth);
    const HeldBundle held(this);
    // A copy, since a service's fini may take it out of the table.
    const std::vector<std::string> names(m_vecServiceNames.rbegin(), m_vecServiceNames.rend());
    for (const std::string& name : names) {
        const std::vector<ServiceEntry> entries = ServiceRepository(NestedHold(m_lock, m_nLockDepth)).TakeActive(name);
        FinalizeAll(name, entries);
    }
}

}  // namespace NS_BUNDLEMGR1
