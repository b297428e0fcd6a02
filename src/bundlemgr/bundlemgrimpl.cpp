#include "src/bundlemgr/bundlemgrimpl.h"

#include <chrono>
#include <cstdlib>
#include <thread>

#include <ace/DLL_Manager.h>
#include <ace/Framework_Component.h>
#include <ace/Guard_T.h>
#include <ace/Service_Config.h>
#include <ace/Service_Repository.h>
#include <ace/Thread_Manager.h>
#include <dlfcn.h>

#include <bundlemgr/bundle.h>

#include "src/bundlemgr/bundleenvironment.h"
#include "src/configurator/servicelibraries.h"
#include "src/corelog/assertion.h"
#include "src/corelog/corelog.h"
#include "src/corelog/usercode.h"
#include "src/lifetime/heldbundle.h"
#include "src/lifetime/inservice.h"
#include "src/lifetime/livebundles.h"
#include "src/lifetime/servicebirth.h"
#include "src/lifetime/tablelock.h"
#include "src/lifetime/yieldingguard.h"
#include "src/log/logproxymgrimpl.h"
#include "src/platform/standardoutput.h"
#include "src/platform/staticobjectlock.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr char kSourceFile[] = "bundlemgrimpl";
constexpr char kConfigurationFile[] = "bundlemgr.cfg";
constexpr int kDefaultIntSetting = 1024;
constexpr int kInitThrew = -1;
constexpr int kStoppedByFini = -1;
constexpr int kInitElsewhere = -1;
constexpr std::chrono::seconds kCorbaPause(2);
constexpr std::chrono::seconds kPause(5);

CoreLog g_log(kSourceFile);

bool IsCoreBundle(const std::string& name) {
    return name == "zo_base_bundle" || name == "zo_domain_bundle";
}

// A bundle that throws must not keep the others from being ended.
template <class Action>
void Contain(const char* operation, BundleObject& bundle, Action action) {
    ReportException([&] { action(bundle); },
                    [&](const char* what) {
                        const std::string name = bundle.GetName();
                        ReportThrown(g_log, __LINE__, operation, UserCode{"bundle", name.c_str()}, what);
                    });
}

// Whether the calling thread is not to wait for the table: it has a bundle or the configurator,
// and others wait for it while the holder of the table runs user code or sleeps.
bool IsTableOutOfReach() {
    return HeldBundle::Any() || ServiceBirth::Any();
}

ServiceInterface* InterfaceOf(BundleObject* bundle) {
    return bundle != nullptr ? bundle->GetInterface() : nullptr;
}

// ACE creates its own singletons under the static-object lock. A service that is ended
// under its bundle's lock would be the first to need some of them, while Destroy ends
// bundles under the static-object lock.
void CreateAceSingletons() {
    ACE_Framework_Repository::instance();
    ACE_Service_Repository::instance();
    ACE_Service_Config::current();
    ACE_DLL_Manager::instance();
    ACE_Thread_Manager::instance();
}

}  // namespace

std::atomic<BundleMgr*> BundleMgr::m_pInstance{nullptr};

BundleMgr::~BundleMgr() noexcept(false) = default;

BundleMgr* BundleMgr::Instance() {
    return InstanceOrMake(m_pInstance, [] { return new BundleMgrImpl; });
}

void BundleMgr::Destroy() {
    if (m_pInstance.load(std::memory_order_acquire) == nullptr) return;
    ACE_Recursive_Thread_Mutex& staticLock = *ACE_Static_Object_Lock::instance();
    ACE_GUARD(ACE_Recursive_Thread_Mutex, guard, staticLock);
    // Another thread may initialise bundles under the table lock, and takes the static-object
    // lock for each directive that the configurator reads: so this lock is not kept while the
    // table is waited for.
    const YieldingGuard<ACE_Recursive_Thread_Mutex> tableGuard(TableLock::Mutex(), staticLock);
    try {
        delete m_pInstance.load(std::memory_order_acquire);
    } catch (...) {
        // Whatever a destructor of a bundle threw, the manager is gone.
    }
    m_pInstance.store(nullptr, std::memory_order_release);
}

BundleMgrImpl::BundleMgrImpl()
    : m_pLogProxyMgr(LogProxyMgrImpl::Take(), LogProxyMgrImpl::Retire),
      m_nIntSetting(kDefaultIntSetting),
      m_nPhase(MGR_PHASE_INIT),
      m_nFinis(0),
      m_nFinalising(0) {
    CreateAceSingletons();
}

BundleMgrImpl::~BundleMgrImpl() noexcept(false) {
    const TableLock::Guard guard;
    ForgetBundles();
    LiveBundles::Configure({});
    ServiceLibraries::CloseUnused();
    for (const auto& library : m_mapLibraries) dlclose(library.second);
    m_mapLibraries.clear();
    m_pLogProxyMgr.reset();
}

void BundleMgrImpl::ForgetBundles() {
    m_mapBundleTable.clear();
    LiveBundles::UnregisterAll();
}

void BundleMgrImpl::RegisterBundle(BundleObject* pBundle) {
    const TableLock::Guard guard;
    Assert(pBundle != nullptr, "pBundle != 0", kSourceFile, __LINE__);
    const std::string strName = pBundle->GetName();
    Assert(!Knows(strName), "m_mapBundleTable.find(strName) == m_mapBundleTable.end()", kSourceFile, __LINE__);
    m_mapBundleTable[strName] = TableEntry(pBundle);
    LiveBundles::Register(strName, pBundle);
}

BundleMgrImpl::TableEntry::TableEntry(BundleObject* bundle) : m_pBundle(bundle), m_nId(LiveBundles::IdOf(bundle)) {}

BundleObject* BundleMgrImpl::TableEntry::Get() const {
    return m_pBundle != nullptr && LiveBundles::IdOf(m_pBundle) == m_nId ? m_pBundle : nullptr;
}

BundleObject* BundleMgrImpl::FindBundle(const std::string& name) const {
    const auto found = m_mapBundleTable.find(name);
    return found != m_mapBundleTable.end() ? found->second.Get() : nullptr;
}

// A name without a bundle counts as well; a bundle that has gone does not.
bool BundleMgrImpl::Knows(const std::string& name) const {
    const auto found = m_mapBundleTable.find(name);
    return found != m_mapBundleTable.end() && (found->second.IsNull() || found->second.Get() != nullptr);
}

BundleObject* BundleMgrImpl::GetBundle(const std::string& name) {
    if (IsTableOutOfReach()) return LiveBundles::Registered(name);
    const TableLock::Guard guard;
    return FindBundle(name);
}

BundleObject* BundleMgrImpl::LoadBundle(const std::string& name) {
    g_log.Prepare();
    const TableLock::Guard guard;
    if (Knows(name)) {
        g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Error: Bundles （%s） already loaded previously!\n", name.c_str());
        return FindBundle(name);
    }
    const std::string fileName = "lib" + name + ".so";
    // The library's initialisers register its bundle, on this thread, before dlopen
    // returns.
    void* const handle = dlopen(fileName.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (handle == nullptr) {
        const char* const reason = dlerror();
        g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Load library %s failed. Error info:\n  %s\n", fileName.c_str(),
                    reason != nullptr ? reason : "");
        return nullptr;
    }
    void*& kept = m_mapLibraries[fileName];
    if (kept == handle) dlclose(handle);  // opened before: once is enough to keep it
    kept = handle;
    BundleObject* const bundle = FindBundle(name);
    if (bundle == nullptr) {
        // The library stays open: it may have registered a bundle of another name.
        g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Error: Load Bundles Lib （%s） failed! \n", fileName.c_str());
        return nullptr;
    }
    g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Loading ... (%s)\n", fileName.c_str());
    return bundle;
}

int BundleMgrImpl::LoadAllBundles() {
    const char* coreBundles[] = {nullptr};
    std::list<std::string> names;
    GetLoadBundles(names, coreBundles);
    {
        const TableLock::Guard guard;
        ForgetBundles();
    }
    int result = 0;
    for (const std::string& name : names) {
        g_log.Print(__LINE__, LOG_LEVEL_INFO, "Loading... %s\n", name.c_str());
        if (LoadBundle(name) != nullptr) continue;
        g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Error: Load Bundle %s failed!\n", name.c_str());
        --result;
    }
    return result;
}

void BundleMgrImpl::GetLoadBundles(std::list<std::string>& out, const char** coreBundles) {
    out.clear();
    if (coreBundles == nullptr) {
        PrintOutText("in [BundleMgrImpl::GetLoadBundles] coreBundles is null");
        return;
    }
    for (; *coreBundles != nullptr; ++coreBundles) out.emplace_back(*coreBundles);
    g_log.Prepare();
    const TableLock::Guard guard;
    ReadConfiguration();
    out.insert(out.end(), m_vecConfiguredBundles.begin(), m_vecConfiguredBundles.end());
}

void BundleMgrImpl::ReadConfiguration() {
    const std::string directory = GetCfgDirPath();
    if (directory.empty()) return;
    const std::string file = directory + kConfigurationFile;
    PrintOut("cfg_file %s \n", file.c_str());
    BundleMgr_Config_Param(file.c_str()).GetConfig(m_mapConfiguredBundles, m_vecConfiguredBundles);
    LiveBundles::Configure(m_vecConfiguredBundles);
}

// Two that let go of the table in turn would initialise a bundle twice. A service that is being
// made is not to wait for its turn: the one who has it may be waiting for the configurator.
int BundleMgrImpl::InitAllBundles() {
    g_log.Prepare();
    unsigned long finisBefore = 0;
    if (!BeginInit(finisBefore)) return kStoppedByFini;
    if (InService::IsActive()) {
        const ACE_Guard<ACE_Recursive_Thread_Mutex> turn(m_initLock, false);
        return turn.locked() ? InitInTurn() : kInitElsewhere;
    }
    const YieldingGuard<ACE_Recursive_Thread_Mutex> turn(m_initLock, HeldLocks());
    return InitInTurn();
}

int BundleMgrImpl::InitInTurn() {
    unsigned long finisBefore = 0;
    if (!BeginInit(finisBefore)) return kStoppedByFini;
    for (const bool core : {true, false}) {
        const int result = InitBundles(SelectLoaded(core), finisBefore);
        if (result != 0) return result;
    }
    return IsFinalisedSince(finisBefore) ? kStoppedByFini : 0;
}

// False while the bundles are finalised: that phase must stay.
bool BundleMgrImpl::BeginInit(unsigned long& finisBefore) {
    const detail::Guard guard(m_phaseLock);
    if (m_nFinalising > 0) return false;
    SetMgrPhase(MGR_PHASE_INIT);
    finisBefore = m_nFinis;
    return true;
}

bool BundleMgrImpl::IsFinalisedSince(unsigned long finisBefore) {
    const detail::Guard guard(m_phaseLock);
    return m_nFinis != finisBefore;
}

BundleMgrImpl::BundlesByOrder BundleMgrImpl::SelectLoaded(bool core) {
    BundlesByOrder selected;
    const TableLock::Guard guard;
    for (const auto& entry : m_mapBundleTable) {
        BundleObject* const bundle = entry.second.Get();
        if (bundle == nullptr || IsCoreBundle(bundle->GetName()) != core) continue;
        const int state = bundle->GetState();
        if (state == BUNDLE_STATE_LOADED) {
            selected.emplace(bundle->GetBundleOrder(), bundle);
        } else {
            g_log.Print(__LINE__, LOG_LEVEL_INFO, "Error: Bundle %s is in state %d, Skip Init! \n",
                        bundle->GetName().c_str(), state);
        }
    }
    return selected;
}

int BundleMgrImpl::InitBundles(const BundlesByOrder& bundles, unsigned long finisBefore) {
    const TableLock::Guard guard;
    for (const auto& entry : bundles) {
        if (IsFinalisedSince(finisBefore)) return kStoppedByFini;
        BundleObject* const bundle = entry.second;
        const std::string name = bundle->GetName();
        g_log.Print(__LINE__, LOG_LEVEL_INFO, "\n========== Init Bundle --- [ %s ] ==========\n", name.c_str());
        int result = kInitThrew;
        Contain("Init", *bundle, [&result](BundleObject& initialised) { result = initialised.Init(); });
        if (result == 0) continue;
        g_log.Print(__LINE__, LOG_LEVEL_INFO, "Error: Init Bundle %s failed! errcode=%d\n", name.c_str(), result);
        return result;
    }
    return 0;
}

BundleMgrImpl::FiniScope::FiniScope(BundleMgrImpl& manager) : m_manager(manager) {
    const detail::Guard guard(m_manager.m_phaseLock);
    ++m_manager.m_nFinis;
    ++m_manager.m_nFinalising;
    m_manager.SetMgrPhase(MGR_PHASE_FINI);
}

BundleMgrImpl::FiniScope::~FiniScope() {
    const detail::Guard guard(m_manager.m_phaseLock);
    --m_manager.m_nFinalising;
}

// An Init that has let go of the table stops before its bundle is finalised. A service that is
// being made is not to wait for that: the Init may be waiting for the configurator.
void BundleMgrImpl::AwaitInit() {
    if (InService::IsActive()) return;
    const YieldingGuard<ACE_Recursive_Thread_Mutex> turn(m_initLock, HeldLocks());
}

void BundleMgrImpl::FiniAllBundles() {
    g_log.Prepare();
    const FiniScope scope(*this);
    AwaitInit();
    const TableLock::Guard guard;
    BundlesByOrder bundles;
    for (const auto& entry : m_mapBundleTable) {
        BundleObject* const bundle = entry.second.Get();
        if (bundle != nullptr) bundles.emplace(-static_cast<long>(bundle->GetBundleOrder()), bundle);
    }
    for (const auto& entry : bundles) {
        g_log.Print(__LINE__, LOG_LEVEL_INFO, "\n========== Fini Bundle --- %s ==========\n",
                    entry.second->GetName().c_str());
        Contain("Fini", *entry.second, [](BundleObject& bundle) { bundle.Fini(); });
    }
}

void BundleMgrImpl::WaitAllBundlesThreadExit() {
    g_log.Prepare();
    const TableLock::Guard guard;
    // A plain bool to its writers in the field, who may be on another thread.
    if (!__atomic_load_n(&g_isUnloadingCorba, __ATOMIC_ACQUIRE)) std::this_thread::sleep_for(kCorbaPause);
    std::this_thread::sleep_for(kPause);
    std::list<BundleObject*> bundles;
    GetBundlesInReverseOrder(bundles);
    for (BundleObject* const bundle : bundles) {
        if (bundle == nullptr) continue;
        Contain("WaitThreadExit", *bundle, [](BundleObject& waited) { waited.WaitThreadExit(); });
    }
}

void BundleMgrImpl::GetBundlesInReverseOrder(std::list<BundleObject*>& out) {
    if (IsTableOutOfReach()) {
        LiveBundles::ConfiguredInReverseOrder(out);
        return;
    }
    const TableLock::Guard guard;
    for (auto name = m_vecConfiguredBundles.rbegin(); name != m_vecConfiguredBundles.rend(); ++name) {
        out.push_back(m_mapBundleTable[*name].Get());
    }
}

ServiceInterface* BundleMgrImpl::GetBundleInterface(const std::string& name) {
    if (IsTableOutOfReach()) return InterfaceOf(LiveBundles::Registered(name));
    const TableLock::Guard guard;
    return InterfaceOf(FindBundle(name));
}

LogProxyMgr* BundleMgrImpl::GetLogProxyMgr() {
    return m_pLogProxyMgr.get();
}

void BundleMgrImpl::SetIntSetting(const int& value) {
    m_nIntSetting = value;
}

int BundleMgrImpl::GetIntSetting() {
    return m_nIntSetting;
}

int BundleMgrImpl::GetMgrPhase() {
    const detail::Guard guard(m_phaseLock);
    return m_nPhase;
}

void BundleMgrImpl::SetMgrPhase(const int& phase) {
    const detail::Guard guard(m_phaseLock);
    m_nPhase = phase;
}

}  // namespace NS_BUNDLEMGR1
