#include "bundle/liveservices.h"

#include <mutex>
#include <thread>
#include <unordered_map>

namespace NS_BUNDLEMGR1 {

namespace {

struct LiveService {
    unsigned long id = 0;
    std::thread::id maker;  // the one thread that may call it; none: all may
};

using Services = std::unordered_map<const ServiceObjectBase*, LiveService>;

std::mutex g_mutex;  // guards the two below
unsigned long g_lastId = 0;

// The innermost birth on this thread.
thread_local const ServiceBirth* t_birth = nullptr;

// Never destroyed: services may die after this library's statics.
Services& Live() {
    static Services* const live = new Services;
    return *live;
}

bool IsChild(const LiveService& live, unsigned long lastIdBefore) {
    return live.id > lastIdBefore && live.maker == std::this_thread::get_id();
}

unsigned long LastId() {
    const std::lock_guard<std::mutex> guard(g_mutex);
    return g_lastId;
}

}  // namespace

namespace LiveServices {

unsigned long Enter(const ServiceObjectBase* service) {
    const std::thread::id maker = t_birth != nullptr ? std::this_thread::get_id() : std::thread::id();
    const std::lock_guard<std::mutex> guard(g_mutex);
    Live()[service] = LiveService{++g_lastId, maker};
    return g_lastId;
}

void Leave(const ServiceObjectBase* service) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    Live().erase(service);
}

void Leave(const ServiceObjectBase* service, unsigned long id) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    const auto found = Live().find(service);
    if (found != Live().end() && found->second.id == id) Live().erase(found);
}

unsigned long IdOf(const ServiceObjectBase* service) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    const auto found = Live().find(service);
    if (found == Live().end()) return 0;
    const std::thread::id maker = found->second.maker;
    return maker == std::thread::id() || maker == std::this_thread::get_id() ? found->second.id : 0;
}

}  // namespace LiveServices

ServiceBirth::ServiceBirth(const std::string& bundleName, BundleObject* bundle)
    : m_strBundleName(bundleName), m_pBundle(bundle), m_pOuter(t_birth), m_nLastIdBefore(LastId()) {
    t_birth = this;
}

ServiceBirth::~ServiceBirth() {
    t_birth = m_pOuter;
}

std::vector<ServiceBirth::Child> ServiceBirth::Children() const {
    std::vector<Child> children;
    const std::lock_guard<std::mutex> guard(g_mutex);
    for (const auto& [service, live] : Live()) {
        if (IsChild(live, m_nLastIdBefore)) children.push_back(Child{service, live.id});
    }
    return children;
}

void ServiceBirth::Publish() const {
    const std::lock_guard<std::mutex> guard(g_mutex);
    for (auto& [service, live] : Live()) {
        if (IsChild(live, m_nLastIdBefore)) live.maker = std::thread::id();
    }
}

BundleObject* ServiceBirth::BundleNamed(const std::string& name) {
    for (const ServiceBirth* birth = t_birth; birth != nullptr; birth = birth->m_pOuter) {
        if (birth->m_strBundleName == name) return birth->m_pBundle;
    }
    return nullptr;
}

}  // namespace NS_BUNDLEMGR1
