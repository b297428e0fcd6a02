#include "src/lifetime/livebundles.h"

#include <iterator>
#include <map>

#include <bundlemgr/detail/mutex.h>

namespace NS_BUNDLEMGR1 {
namespace LiveBundles {

namespace {

struct LiveBundle {
    unsigned long id = 0;
    std::map<std::string, unsigned long> services;  // their numbers, by name
};

struct Registry {
    unsigned long lastId = 0;
    std::map<const BundleObject*, LiveBundle> live;
    std::map<std::string, BundleObject*> registered;
    std::vector<std::string> configured;

    BundleObject* Named(const std::string& name) const {
        const auto found = registered.find(name);
        return found != registered.end() ? found->second : nullptr;
    }
};

detail::Mutex g_mutex;

// Never destroyed: bundles may die after this library's statics.
Registry& Bundles() ZO_REQUIRES(g_mutex) {
    static Registry* const bundles = new Registry;
    return *bundles;
}

}  // namespace

void Add(const BundleObject* bundle) {
    const detail::Guard guard(g_mutex);
    Registry& bundles = Bundles();
    bundles.live[bundle] = LiveBundle{++bundles.lastId, {}};
}

void Remove(const BundleObject* bundle) {
    const detail::Guard guard(g_mutex);
    Registry& bundles = Bundles();
    bundles.live.erase(bundle);
    for (auto entry = bundles.registered.begin(); entry != bundles.registered.end();) {
        entry = entry->second == bundle ? bundles.registered.erase(entry) : std::next(entry);
    }
}

unsigned long IdOf(const BundleObject* bundle) {
    const detail::Guard guard(g_mutex);
    const auto found = Bundles().live.find(bundle);
    return found != Bundles().live.end() ? found->second.id : 0;
}

void SetService(const BundleObject* bundle, const std::string& service, unsigned long id) {
    const detail::Guard guard(g_mutex);
    Bundles().live[bundle].services[service] = id;
}

unsigned long ServiceId(const BundleObject* bundle, const std::string& service) {
    const detail::Guard guard(g_mutex);
    const auto found = Bundles().live.find(bundle);
    if (found == Bundles().live.end()) return 0;
    const auto id = found->second.services.find(service);
    return id != found->second.services.end() ? id->second : 0;
}

void ForgetService(const BundleObject* bundle, const std::string& service) {
    const detail::Guard guard(g_mutex);
    const auto found = Bundles().live.find(bundle);
    if (found != Bundles().live.end()) found->second.services.erase(service);
}

void Register(const std::string& name, BundleObject* bundle) {
    const detail::Guard guard(g_mutex);
    Bundles().registered[name] = bundle;
}

void Configure(const std::vector<std::string>& names) {
    const detail::Guard guard(g_mutex);
    Bundles().configured = names;
}

void UnregisterAll() {
    const detail::Guard guard(g_mutex);
    Bundles().registered.clear();
}

BundleObject* Registered(const std::string& name) {
    const detail::Guard guard(g_mutex);
    return Bundles().Named(name);
}

void ConfiguredInReverseOrder(std::list<BundleObject*>& out) {
    const detail::Guard guard(g_mutex);
    const std::vector<std::string>& names = Bundles().configured;
    for (auto name = names.rbegin(); name != names.rend(); ++name) out.push_back(Bundles().Named(*name));
}

}  // namespace LiveBundles
}  // namespace NS_BUNDLEMGR1
