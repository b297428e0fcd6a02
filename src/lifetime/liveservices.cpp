#include "src/lifetime/liveservices.h"

#include <algorithm>
#include <thread>
#include <unordered_map>

#include <bundlemgr/bundle.h>
#include <bundlemgr/detail/mutex.h>

#include "src/lifetime/nestedlock.h"
#include "src/lifetime/servicebirth.h"

namespace NS_BUNDLEMGR1 {

namespace {

struct LiveService {
    bool IsMine() const { return owner == std::this_thread::get_id(); }
    bool IsCalledByOthers() const {
        const std::thread::id me = std::this_thread::get_id();
        return std::any_of(callers.begin(), callers.end(), [me](std::thread::id caller) { return caller != me; });
    }

    // Once it is no longer, it never is again.
    bool IsUnpublished() const { return isBorn && IsMine() && !isRetired && !isGivenUp; }

    unsigned long id = 0;
    std::thread::id owner;  // the one thread that may use it, since it makes or ends it; none: all
    bool isBorn = false;    // made by the configurator
    bool isMade = false;    // by a factory that told so; see MarkMade
    bool isRetired = false;
    bool isGivenUp = false;
    ServiceObjectBase* orphan = nullptr;  // this one, when its callers are to destroy it
    std::vector<std::thread::id> callers;
};

struct Registry {
    detail::Condition changed;
    unsigned long lastId = 0;
    std::unordered_map<const ServiceObjectBase*, LiveService> services;

    /// @return null where there is none, or one of another number
    LiveService* Find(const ServiceObjectBase* service, unsigned long id = 0) {
        const auto found = services.find(service);
        const bool isMeant = found != services.end() && (id == 0 || found->second.id == id);
        return isMeant ? &found->second : nullptr;
    }
    LiveService* FindUnpublished(const LiveServices::Service& service) {
        LiveService* const live = Find(service.object, service.id);
        return live != nullptr && live->IsUnpublished() ? live : nullptr;
    }
};

detail::Mutex g_mutex;

// Never destroyed: services may die after this library's statics.
Registry& Live() ZO_REQUIRES(g_mutex) {
    static Registry* const live = new Registry;
    return *live;
}

bool MayCall(const LiveService& live, CallPurpose purpose) {
    if (live.isGivenUp) return false;
    if (live.owner == std::thread::id() || live.IsMine()) return true;
    return purpose == CallPurpose::kEndThreads && live.isMade && !live.isRetired;
}

/// Waits, without the locks of the thread, until the condition holds for the service of
/// that number, or there is none of that number any more.
template <class Condition>
void Await(const ServiceObjectBase* service, unsigned long id, Condition condition) {
    const LockPause pause;
    const detail::Guard guard(g_mutex);
    for (;;) {
        const LiveService* const live = Live().Find(service, id);
        if (live == nullptr || condition(*live)) return;
        Live().changed.Wait(g_mutex);
    }
}

}  // namespace

namespace LiveServices {

unsigned long Add(const ServiceObjectBase* service) {
    LiveService added;
    added.isBorn = ServiceBirth::Any();
    if (added.isBorn) added.owner = std::this_thread::get_id();
    ServiceBirth::MakeRoom();
    const detail::Guard guard(g_mutex);
    added.id = ++Live().lastId;
    // Before it is there, so that there is none that the birth does not know.
    ServiceBirth::Add(Service{service, added.id});
    Live().services[service] = added;
    return added.id;
}

void Remove(const ServiceObjectBase* service) {
    Remove(service, 0);
}

void Remove(const ServiceObjectBase* service, unsigned long id) {
    const detail::Guard guard(g_mutex);
    if (Live().Find(service, id) == nullptr) return;
    Live().services.erase(service);
    Live().changed.TellAll();
}

unsigned long IdOf(const ServiceObjectBase* service) {
    const detail::Guard guard(g_mutex);
    const LiveService* const live = Live().Find(service);
    return live != nullptr ? live->id : 0;
}

void MarkMade(const ServiceObjectBase* service) {
    const detail::Guard guard(g_mutex);
    LiveService* const live = Live().Find(service);
    if (live != nullptr) live->isMade = true;
}

void GiveUp(const ServiceObjectBase* service, unsigned long id) {
    const detail::Guard guard(g_mutex);
    LiveService* const live = Live().Find(service, id);
    if (live == nullptr) return;
    if (live->isMade) {
        live->isGivenUp = true;
    } else {
        Live().services.erase(service);
        Live().changed.TellAll();
    }
}

bool MayVanish(const ServiceObjectBase* service) {
    const detail::Guard guard(g_mutex);
    const LiveService* const live = Live().Find(service);
    return live != nullptr && live->isBorn && !live->isMade && !live->isRetired;
}

void Retire(const ServiceObjectBase* service) {
    unsigned long id = 0;
    {
        const detail::Guard guard(g_mutex);
        LiveService* const live = Live().Find(service);
        if (live == nullptr) return;
        live->owner = std::this_thread::get_id();
        live->isRetired = true;
        if (!live->IsCalledByOthers()) return;
        id = live->id;
    }
    Await(service, id, [](const LiveService& live) { return !live.IsCalledByOthers(); });
}

bool LeaveToCallers(ServiceObjectBase* service) {
    const detail::Guard guard(g_mutex);
    LiveService* const live = Live().Find(service);
    if (live == nullptr || !live->IsCalledByOthers()) return false;
    live->isGivenUp = true;
    live->orphan = service;
    return true;
}

bool IsRetiredElsewhere(const ServiceObjectBase* service, unsigned long id) {
    const detail::Guard guard(g_mutex);
    const LiveService* const live = Live().Find(service, id);
    return live != nullptr && live->isRetired && !live->IsMine();
}

void AwaitEnd(const ServiceObjectBase* service, unsigned long id) {
    Await(service, id, [](const LiveService&) { return false; });
}

unsigned long BeginCall(const ServiceObjectBase* service, unsigned long id, CallPurpose purpose) {
    const detail::Guard guard(g_mutex);
    LiveService* const live = Live().Find(service, id);
    if (live == nullptr || !MayCall(*live, purpose)) return 0;
    live->callers.push_back(std::this_thread::get_id());
    return live->id;
}

ServiceObjectBase* EndCall(const ServiceObjectBase* service, unsigned long id) {
    const detail::Guard guard(g_mutex);
    LiveService* const live = Live().Find(service, id);
    if (live == nullptr) return nullptr;  // it removed itself
    live->callers.erase(std::find(live->callers.begin(), live->callers.end(), std::this_thread::get_id()));
    Live().changed.TellAll();
    return live->callers.empty() ? live->orphan : nullptr;
}

void KeepUnpublished(std::vector<Service>& services, std::size_t from) {
    const detail::Guard guard(g_mutex);
    Registry& registry = Live();
    const auto isOther = [&registry](const Service& service) { return registry.FindUnpublished(service) == nullptr; };
    const auto begin = services.begin() + static_cast<std::ptrdiff_t>(from);
    services.erase(std::remove_if(begin, services.end(), isOther), services.end());
}

void Publish(const std::vector<Service>& services, std::size_t from) {
    const detail::Guard guard(g_mutex);
    for (std::size_t place = from; place < services.size(); ++place) {
        LiveService* const live = Live().FindUnpublished(services[place]);
        if (live != nullptr) live->owner = std::thread::id();
    }
}

}  // namespace LiveServices
}  // namespace NS_BUNDLEMGR1
