#include <map>

#include <ace/Guard_T.h>

#include "bundlemgr/bundle.h"

namespace NS_BUNDLEMGR1 {

// Made before and destroyed after everything else here, for the static objects of
// others that look interfaces up.
__attribute__((init_priority(101))) ACE_Thread_Mutex _g_actualmutex;

/// What is known under one interface name.
///
/// Proxies read `first` without a lock. The list is public through `CheckIFBuf` and may
/// be appended to there, so it stays what counts when `first` says "nothing".
struct InterfaceEntry {
    std::vector<ServiceInterface*> list;
    std::atomic<ServiceInterface*> first{nullptr};
    std::atomic<bool> known{false};  // `first` is valid, though it may be null
};

namespace {

using Guard = ACE_Guard<ACE_Thread_Mutex>;

/// The interface registry and the shared null interfaces.
struct Registry {
    ACE_Thread_Mutex mutex;
    std::map<std::string, InterfaceEntry> entries;
    // By the name of the interface's type: the type itself may go with its library.
    std::map<std::string, std::atomic<ServiceInterface*>> nullInterfaces;
};

// Never destroyed, for the same reason; and made on first use.
Registry& TheRegistry() {
    static Registry* const registry = new Registry;
    return *registry;
}

InterfaceEntry& EntryOf(const std::string& name) {
    Registry& registry = TheRegistry();
    Guard guard(registry.mutex);
    return registry.entries[name];  // a map's elements do not move
}

// The registry's mutex must be held.
void Publish(InterfaceEntry& entry) {
    entry.first.store(entry.list.front(), std::memory_order_relaxed);
    entry.known.store(true, std::memory_order_release);
}

bool PublishIfAny(InterfaceEntry& entry) {
    Guard guard(TheRegistry().mutex);
    if (entry.list.empty()) return false;
    Publish(entry);
    return true;
}

std::vector<ServiceInterface*> ListOf(const InterfaceEntry& entry) {
    Guard guard(TheRegistry().mutex);
    return entry.list;
}

void Append(InterfaceEntry& entry, ServiceInterface* iface) {
    Guard guard(TheRegistry().mutex);
    entry.list.push_back(iface);
}

}  // namespace

ServiceInterface::~ServiceInterface() = default;

FinalClass::~FinalClass() = default;

NULLServiceInterface::~NULLServiceInterface() = default;

std::string NULLServiceInterface::GetDescription() {
    return "NULLServiceInterface!";
}

void* NULLServiceInterface::GetImplementation() {
    return nullptr;
}

std::vector<ServiceInterface*>* CheckIFBuf(const std::string& name) {
    return &EntryOf(name).list;
}

void SetIFBuf(const std::string& name, ServiceInterface* iface) {
    Registry& registry = TheRegistry();
    Guard guard(registry.mutex);
    InterfaceEntry& entry = registry.entries[name];
    entry.list.assign(1, iface);
    Publish(entry);
}

InterfaceProxyBase::InterfaceProxyBase(const std::string& interfaceName, const std::string& bundleName)
    : m_pEntry(&EntryOf(interfaceName)),
      m_pMutex(&_g_actualmutex),
      m_strBundleName(bundleName),
      m_strInterfaceName(interfaceName) {}

void* InterfaceProxyBase::Find(CastFn cast, std::vector<ServiceInterface*>* all) {
    if (!m_pEntry->known.load(std::memory_order_acquire)) Search(cast);
    std::vector<ServiceInterface*> list;
    if (all != nullptr) list = ListOf(*m_pEntry);
    ServiceInterface* const first = list.empty() ? m_pEntry->first.load(std::memory_order_acquire) : list.front();
    // Somebody may have set, or searched for, an interface of another type.
    void* const typed = first != nullptr ? cast(first) : nullptr;
    if (typed == nullptr) throw InterfaceNotExistException();
    if (all != nullptr) all->swap(list);
    return typed;
}

// Fills the entry, or throws.
void InterfaceProxyBase::Search(CastFn cast) {
    const std::list<BundleObject*> bundles = BundlesToSearch();
    Guard guard(*m_pMutex);
    if (PublishIfAny(*m_pEntry)) return;
    for (BundleObject* const bundle : bundles) {
        if (bundle == nullptr) continue;
        ServiceInterface* const iface = bundle->FindServiceInterface(m_strInterfaceName);
        if (iface != nullptr && cast(iface) != nullptr) Append(*m_pEntry, iface);
    }
    if (!PublishIfAny(*m_pEntry)) throw InterfaceNotExistException();
}

std::list<BundleObject*> InterfaceProxyBase::BundlesToSearch() const {
    std::list<BundleObject*> bundles;
    BundleMgr* const manager = BundleMgr::Instance();
    if (manager == nullptr) return bundles;
    if (m_strBundleName.empty()) {
        manager->GetBundlesInReverseOrder(bundles);
    } else {
        bundles.push_back(manager->GetBundle(m_strBundleName));
    }
    return bundles;
}

ServiceInterface* InterfaceProxyBase::NullInterface(const std::type_info& type) {
    std::atomic<ServiceInterface*>* holder = nullptr;
    {
        Guard guard(TheRegistry().mutex);
        holder = &TheRegistry().nullInterfaces[type.name()];
    }
    ServiceInterface* shared = holder->load(std::memory_order_acquire);
    if (shared != nullptr) return shared;
    Guard guard(_g_actualmutex);
    shared = holder->load(std::memory_order_acquire);
    if (shared == nullptr) {
        shared = new NULLServiceInterface;
        holder->store(shared, std::memory_order_release);
    }
    return shared;
}

}  // namespace NS_BUNDLEMGR1
