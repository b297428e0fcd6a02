#include <algorithm>
#include <cstdlib>
#include <optional>

#include <ace/Assert.h>
#include <ace/Service_Config.h>

#include "bundle/currentexception.h"
#include "bundle/heldbundle.h"
#include "bundle/livebundles.h"
#include "bundle/liveservices.h"
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

void ReportThrown(const char* operation, const std::string& serviceName, const char* what) {
    g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Error: %s of service %s threw: %s\n", operation, serviceName.c_str(), what);
}

// A service that throws must not keep the others from being ended.
template <class Action>
void Contain(const char* operation, const std::string& serviceName, Action action) {
    ReportException(action, [&](const char* what) { ReportThrown(operation, serviceName, what); });
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
    const ServiceEnd end(ServiceRepository::ObjectOf(entry));
    ServiceRepository::Finalize(entry, [&](const char* what) { ReportThrown("fini", serviceName, what); });
}

void FinalizeAll(const std::string& serviceName, const std::vector<ServiceEntry>& entries) {
    for (const ServiceEntry& entry : entries) Finalize(serviceName, *entry);
}

// The failed service may be gone without its destructor, whatever name it registered
// under; those that it brought up in its turn are not.
void ForgetFailed(const std::string& serviceName, const ServiceBirth& birth, const ServiceRepository& repository) {
    for (const ServiceBirth::Child& child : birth.Children()) {
        if (!repository.HoldsUnderAnotherName(child.service, serviceName))
            LiveServices::GiveUp(child.service, child.id);
    }
}

// What ends the loading of a bundle before that service: nothing, or a result.
std::optional<int> StopOf(const BundleObject& bundle, const std::string& serviceName) {
    if (IsManagerFinalising()) return kStoppedByManager;
    if (bundle.GetState() != BUNDLE_STATE_FINIED) return std::nullopt;
    Log(kLineBundleFinalised, "\n===== proc will exit and stop to init Service -[ %s ] =====\n", serviceName.c_str());
    return kStoppedByBundle;
}

// Has the configurator create and initialise a service. Any result of its init but 0
// is a failure, where the configurator itself knows only -1.
int ProcessDirective(const std::string& serviceName, const std::string& directive, const std::string& bundleName,
                     const ServiceRepository& repository) {
    // The manager is not asked: one that is finalising answers when it has finished, and
    // may be waiting for this thread.
    const ServiceBirth birth(bundleName, LiveBundles::Registered(bundleName));
    ServiceLibraries::Note(directive);
    int result = kInitThrew;
    Contain("Initialisation", serviceName,
            [&result, &directive] { result = ACE_Service_Config::current()->process_directive(directive.c_str()); });
    if (result == 0) result = repository.InitResult(serviceName);
    if (result != 0) ForgetFailed(serviceName, birth, repository);
    birth.Publish();
    return result;
}

struct Start {
    int result;
    bool isStopped;  // nothing was started, and nothing is to be
};

// Whether to start is looked at when it is this thread's turn at the configurator: who stops
// the services waits for that turn, too, and finds either this one or nothing.
Start StartService(const std::string& serviceName, const std::string& directive, BundleObject& bundle) {
    for (bool isAnnounced = false;; isAnnounced = true) {
        std::vector<ServiceEntry> namesakes;
        std::optional<int> stop = StopOf(bundle, serviceName);
        if (stop) return Start{*stop, true};
        {
            ServiceRepository turn;
            stop = StopOf(bundle, serviceName);
            if (stop) return Start{*stop, true};
            if (!isAnnounced) Log(kLineInitService, "\n===== Init Service -[ %s ] =====\n", serviceName.c_str());
            namesakes = turn.TakeActive(serviceName);
            if (namesakes.empty())
                return Start{ProcessDirective(serviceName, directive, bundle.GetName(), turn), false};
        }
        // The configurator would make room for the service by finalising one of the same name,
        // another bundle's perhaps, in a destructor, where an exception would end the process.
        FinalizeAll(serviceName, namesakes);
    }
}

std::atomic<int> g_loaders{0};  // threads in LoadAllServiceObjects

// Counts for its life.
class Count {
public:
    explicit Count(std::atomic<int>& counter) : m_counter(counter) { ++m_counter; }
    ~Count() { --m_counter; }
    Count(const Count&) = delete;
    Count& operator=(const Count&) = delete;

private:
    std::atomic<int>& m_counter;
};

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
    Assert(service != nullptr, "pServiceObject != 0", kLineAssertService);
    const std::string strSvcName = serviceName;
    // Whoever is ending the one of before would have taken it out by now, but for having to
    // wait for something else.
    if (IsEndedElsewhere(strSvcName)) Forget(strSvcName);
    Assert(m_serviceObjectMap.find(strSvcName) == m_serviceObjectMap.end(),
           "m_serviceObjectMap.find(strSvcName) == m_serviceObjectMap.end()", kLineAssertNewService);
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
    if (entry != nullptr) Finalize(strSvcName, *entry);
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
    const ServiceCall call(found->second, IdOf(serviceName), ServiceCall::kUse);
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
    const ServiceCall call(service, IdOf(serviceName), ServiceCall::kEndThreads);
    if (call) Contain("ExitThreads", serviceName, [service] { service->ExitThreads(); });
}

int BundleObject::LoadAllServiceObjects() {
    const std::string path = ServiceConfigurationPath(GetName());
    if (path.empty()) {
        Log(kLineNoConfiguration, "\n===== get svc cfg is empty, proc will exit and stop to init Service =====\n");
        return kNoConfiguration;
    }
    const Count loader(g_loaders);
    SVC_Config_Param configuration(path.c_str());
    for (const std::string& name : configuration.GetServiceNames()) {
        if (IsManagerFinalising()) return kStoppedByManager;
        const std::string directive = configuration.GetServiceDirective(name.c_str());
        if (directive.empty()) continue;
        const Start start = StartService(name, directive, *this);
        if (start.isStopped) return start.result;
        if (start.result != 0) {
            Log(kLineInitFailed, "\n===== Init Failed -[ %s ][ params:%s ][ err: %d ] =====\n", name.c_str(),
                directive.c_str(), start.result);
            RemoveServiceObject(name.c_str());
            return start.result;
        }
        Log(kLineServiceReady, "\n===== Service Ready -[ %s ] =====\n", name.c_str());
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
        FinalizeAll(name, entries);
    }
}

// A copy, newest first, since a service's fini may take it out of the table. At the end, while
// any services are still being loaded, one may be on its way that is not in the table yet: the
// configurator is waited for, as the loading does before it looks for a stop.
std::vector<std::string> BundleObject::NamesToUnload() {
    const bool mayGrow = IsManagerFinalising() && g_loaders > 0;
    if (m_vecServiceNames.empty() && !mayGrow) return {};
    const ServiceRepository turn;
    return {m_vecServiceNames.rbegin(), m_vecServiceNames.rend()};
}

}  // namespace NS_BUNDLEMGR1
