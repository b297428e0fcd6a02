#include <bundlemgr/base.h>
#include <bundlemgr/bundle.h>
#include <bundlemgr/event.h>

#include "src/bundle/servicetable.h"
#include "src/bundlemgr/bundleenvironment.h"
#include "src/configurator/serviceloader.h"
#include "src/configurator/servicerepository.h"
#include "src/corelog/assertion.h"
#include "src/corelog/corelog.h"
#include "src/lifetime/heldbundle.h"
#include "src/lifetime/livebundles.h"

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

// What bundles in the field were compiled with. Whatever else the library has to know about a
// bundle, it keeps in LiveBundles.
struct BundleLayout {
    virtual ~BundleLayout() = default;
    int state;
    std::map<std::string, ServiceObjectBase*> services;
    std::vector<std::string> names;
    ACE_Recursive_Thread_Mutex guard;
    ServiceInterface* iface;
};
static_assert(sizeof(BundleObject) == sizeof(BundleLayout), "the base of every bundle keeps its size");

}  // namespace

BundleObject::BundleObject() : m_nState(BUNDLE_STATE_LOADED), m_pInterface(nullptr) {
    ServiceTable::NoteOwnOperations(*this);
    LiveBundles::Add(this);
}

BundleObject::~BundleObject() {
    LiveBundles::Remove(this);
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
    ServiceTable(*this).Register(serviceName, service);
}

void BundleObject::RemoveServiceObject(const char* serviceName) {
    g_log.Prepare();
    LightEventMgr::Instance();
    const std::string name = serviceName;
    const HeldBundle held(m_lock);
    ServiceTable table(*this);
    table.AwaitEndElsewhere(name);
    ServiceEntry entry;
    bool registered = table.Has(name);
    if (registered) {
        ServiceRepository repository;  // the bundle may be let go of meanwhile
        registered = table.Has(name);
        if (registered) entry = repository.Take(name);
    }
    if (!registered) {
        Log(kLineServiceNotFound, "Error: Remove service %s failed! Service not found!\n", serviceName);
        return;
    }
    const unsigned long id = table.IdOf(name);
    if (entry != nullptr) FinalizeService(name, *entry);
    if (table.IdOf(name) == id) table.Forget(name);  // or a successor has come meanwhile
    LightEventMgr* const events = LightEventMgr::Instance();
    if (events != nullptr) events->Push_Msg(LIGHT_EVENT_SERVICE_REMOVED, nullptr, 0);
}

void BundleObject::GetAllServiceObjects(std::map<std::string, ServiceObjectBase*>& out) {
    const HeldBundle held(m_lock);
    for (const auto& entry : m_serviceObjectMap) out[entry.first] = entry.second;
}

void BundleObject::WaitThreadExit() {
    g_log.Prepare();
    const HeldBundle held(m_lock);
    ServiceTable table(*this);
    for (const std::string& name : table.NamesNewestFirst()) {
        if (!table.Lists(name)) continue;
        Log(kLineBeginExitThreads, "\n===== Begin to Exit Threads of -[ %s -- %s ] =====\n", GetName().c_str(),
            name.c_str());
        table.ExitThreadsOf(name);
        Log(kLineFinishExitThreads, "\n===== Finish to Exit Threads of -[ %s -- %s ] =====\n", GetName().c_str(),
            name.c_str());
    }
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

// At the end, while any services are still being loaded, one may be on its way that is not in
// the table yet: the configurator is waited for, as the loading does before it looks for a stop.
void BundleObject::UnLoadAllServiceObjects() {
    g_log.Prepare();
    LightEventMgr::Instance();  // a service may remove itself under the lock below
    const HeldBundle held(m_lock);
    ServiceTable table(*this);
    std::vector<std::string> names;
    if (!m_vecServiceNames.empty() || (IsManagerFinalising() && ServiceLoader::Any())) {
        const ServiceRepository turn;
        names = table.NamesNewestFirst();
    }
    for (const std::string& name : names) {
        table.AwaitEndElsewhere(name);
        const std::vector<ServiceEntry> entries = ServiceRepository().TakeActive(name);
        FinalizeServices(name, entries);
    }
}

}  // namespace NS_BUNDLEMGR1
