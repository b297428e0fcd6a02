#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>

#include <ace/Guard_T.h>

#include <bundlemgr/bundle.h>
#include <bundlemgr/detail/mutex.h>

#include "src/bundle/servicetable.h"
#include "src/lifetime/nestedlock.h"
#include "src/lifetime/yieldingguard.h"

namespace NS_BUNDLEMGR1 {

// Made before and destroyed after everything else here, for the static objects of
// others that look interfaces up.
__attribute__((init_priority(101))) ACE_Thread_Mutex _g_actualmutex;

/// What is known of one interface name as one type of interface: the pointer that was last
/// found to be of that type, and what it is as that type.
///
/// Proxies read it without a lock. It is written under the registry's mutex, `typed` first.
struct VerifiedInterface {
    std::atomic<const void*> first{Nothing()};
    std::atomic<void*> typed{nullptr};

    /// An address that no interface can have, nor null.
    static const void* Nothing() {
        static const char s_nothing = 0;
        return &s_nothing;
    }
};

/// What is known under one interface name.
///
/// The list is public through `CheckIFBuf`, whose callers change it as they like, at a time
/// when no other thread looks up or sets that name. The library itself changes it under the
/// registry's mutex and never frees the memory of its elements, so that proxies may look at
/// it meanwhile.
struct InterfaceEntry {
    std::vector<ServiceInterface*> list;
    std::vector<std::vector<ServiceInterface*>> outgrown;  // what the list was kept in before
    std::map<std::string, VerifiedInterface> verified;     // by type, see TypeKey
};

namespace {

using Guard = detail::Guard<detail::Mutex>;
using ProxyGuard = YieldingGuard<ACE_Thread_Mutex>;

constexpr std::size_t kUsualListSize = 4;

/// The interface registry and the shared null interfaces.
struct Registry {
    std::map<std::string, InterfaceEntry> entries;
    // By the name of the interface's type: the type itself may go with its library.
    std::map<std::string, std::atomic<ServiceInterface*>> nullInterfaces;
};

detail::Mutex g_registryMutex;

// Never destroyed, for the same reason; and made on first use.
Registry* g_pRegistry ZO_GUARDED_BY(g_registryMutex) = nullptr;

Registry& TheRegistry() ZO_REQUIRES(g_registryMutex) {
    if (g_pRegistry == nullptr) g_pRegistry = new Registry;
    return *g_pRegistry;
}

InterfaceEntry& EntryOf(const std::string& name) ZO_REQUIRES(g_registryMutex) {
    const auto [entry, isNew] = TheRegistry().entries.try_emplace(name);
    if (isNew) entry->second.list.reserve(kUsualListSize);
    return entry->second;  // a map's elements do not move
}

// Names the type even when its library has gone. Types of unnamed namespaces share their
// names; each library has its own.
std::string TypeKey(const std::type_info& type) {
    std::string name = type.name();
    if (name.find("_GLOBAL__N_") == std::string::npos) return name;
    return name + "@" + std::to_string(reinterpret_cast<std::uintptr_t>(type.name()));
}

bool IsEmpty(const InterfaceEntry& entry) {
    const Guard guard(g_registryMutex);
    return entry.list.empty();
}

// Another interface may lie where the verified one was.
void ForgetVerified(InterfaceEntry& entry) ZO_REQUIRES(g_registryMutex) {
    for (auto& [type, verified] : entry.verified) verified.first = VerifiedInterface::Nothing();
}

void SetVerified(VerifiedInterface& verified, const ServiceInterface* first, void* typed) ZO_REQUIRES(g_registryMutex) {
    verified.typed.store(typed, std::memory_order_relaxed);
    verified.first.store(first, std::memory_order_release);
}

void Append(InterfaceEntry& entry, ServiceInterface* iface, VerifiedInterface& verified, void* typed) {
    const Guard guard(g_registryMutex);
    std::vector<ServiceInterface*>& list = entry.list;
    if (list.empty()) {
        ForgetVerified(entry);
        SetVerified(verified, iface, typed);
    }
    if (list.size() == list.capacity()) {
        std::vector<ServiceInterface*> larger;
        larger.reserve(2 * list.size() + kUsualListSize);
        larger = list;
        entry.outgrown.emplace_back().swap(list);
        list.swap(larger);
    }
    list.push_back(iface);
}

/// @return whether that is the list's first element, which is read without a lock
///
/// A value that is just being changed does no harm: it is either the one from before or the one
/// from after, or is not what was asked for. A vector's own operations cannot be made to take
/// part in that, hence the look at what all implementations of it begin with: pointers to its
/// first element and behind its last.
__attribute__((no_sanitize("thread"))) inline bool IsFirst(const void* known,
                                                           const std::vector<ServiceInterface*>& list) {
    static_assert(sizeof(std::vector<ServiceInterface*>) == 3 * sizeof(void*), "first, last, end of the memory");
    using Element = const void* const;
    Element* const* const ends = reinterpret_cast<Element* const*>(&list);
    Element* const begin = __atomic_load_n(&ends[0], __ATOMIC_RELAXED);
    Element* const end = __atomic_load_n(&ends[1], __ATOMIC_RELAXED);
    return begin != end && begin != nullptr && __atomic_load_n(begin, __ATOMIC_RELAXED) == known;
}

// A search on the calling thread. A service's GetInterface, which it calls, may search in its
// turn.
class SearchScope {
public:
    SearchScope() : m_bOuter(t_isActive) { t_isActive = true; }
    ~SearchScope() { t_isActive = m_bOuter; }
    SearchScope(const SearchScope&) = delete;
    SearchScope& operator=(const SearchScope&) = delete;

    static bool IsActive() { return t_isActive; }

private:
    static thread_local bool t_isActive;

    const bool m_bOuter;
};

thread_local bool SearchScope::t_isActive = false;

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
    const Guard guard(g_registryMutex);
    return &EntryOf(name).list;
}

void SetIFBuf(const std::string& name, ServiceInterface* iface) {
    const Guard guard(g_registryMutex);
    InterfaceEntry& entry = EntryOf(name);
    ForgetVerified(entry);
    entry.list.assign(1, iface);
}

void RemoveIFBuf(const std::string& name, const ServiceInterface* iface) {
    const Guard guard(g_registryMutex);
    if (iface == nullptr || g_pRegistry == nullptr) return;
    const auto entry = g_pRegistry->entries.find(name);
    if (entry == g_pRegistry->entries.end()) return;
    ForgetVerified(entry->second);
    std::vector<ServiceInterface*>& list = entry->second.list;
    list.erase(std::remove(list.begin(), list.end(), iface), list.end());
}

InterfaceProxyBase::InterfaceProxyBase(const std::string& interfaceName, const std::string& bundleName,
                                       const std::type_info& type)
    : m_pMutex(&_g_actualmutex), m_strBundleName(bundleName), m_strInterfaceName(interfaceName) {
    const Guard guard(g_registryMutex);
    m_pEntry = &EntryOf(interfaceName);
    m_pVerified = &m_pEntry->verified[TypeKey(type)];
}

// What was found before is handed out by a few loads; all else is a function of its own, so that
// this one needs no stack.
void* InterfaceProxyBase::Find(CastFn cast, std::vector<ServiceInterface*>* all) {
    const void* const known = m_pVerified->first.load(std::memory_order_acquire);
    if (all != nullptr || !IsFirst(known, m_pEntry->list)) return FindWithLock(cast, all);
    return m_pVerified->typed.load(std::memory_order_relaxed);
}

__attribute__((noinline)) void* InterfaceProxyBase::FindWithLock(CastFn cast, std::vector<ServiceInterface*>* all) {
    if (IsEmpty(*m_pEntry)) Search(cast);
    const Guard guard(g_registryMutex);
    void* const typed = Verify(cast);
    if (all != nullptr) *all = m_pEntry->list;
    return typed;
}

// The first element as the proxy's type. It is looked at only when it has not been found to be
// of that type before: it may be gone since.
void* InterfaceProxyBase::Verify(CastFn cast) ZO_REQUIRES(g_registryMutex) {
    if (m_pEntry->list.empty()) throw InterfaceNotExistException();
    ServiceInterface* const first = m_pEntry->list.front();
    if (m_pVerified->first == first) return m_pVerified->typed;
    void* const typed = first != nullptr ? cast(first) : nullptr;
    // Somebody may have set, or searched for, an interface of another type.
    if (first != nullptr && typed == nullptr) throw InterfaceNotExistException();
    SetVerified(*m_pVerified, first, typed);
    return typed;
}

// Fills the entry if it can.
void InterfaceProxyBase::Search(CastFn cast) {
    const std::list<BundleObject*> bundles = BundlesToSearch();
    std::optional<ProxyGuard> guard;
    if (!SearchScope::IsActive()) guard.emplace(*m_pMutex, HeldLocks());
    const SearchScope scope;
    if (!IsEmpty(*m_pEntry)) return;
    for (BundleObject* const bundle : bundles) {
        if (bundle == nullptr) continue;
        ServiceTable::FindInterface(*bundle, m_strInterfaceName, cast, [this](ServiceInterface* iface, void* typed) {
            Append(*m_pEntry, iface, *m_pVerified, typed);
        });
    }
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
        const Guard guard(g_registryMutex);
        holder = &TheRegistry().nullInterfaces[type.name()];
    }
    ServiceInterface* shared = holder->load(std::memory_order_acquire);
    if (shared != nullptr) return shared;
    std::optional<ProxyGuard> guard;
    if (!SearchScope::IsActive()) guard.emplace(_g_actualmutex, HeldLocks());
    shared = holder->load(std::memory_order_acquire);
    if (shared == nullptr) {
        shared = new NULLServiceInterface;
        holder->store(shared, std::memory_order_release);
    }
    return shared;
}

}  // namespace NS_BUNDLEMGR1
