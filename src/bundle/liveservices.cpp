#include "bundle/liveservices.h"

#include <mutex>
#include <unordered_map>

namespace NS_BUNDLEMGR1 {
namespace LiveServices {

namespace {

using Ids = std::unordered_map<const ServiceObjectBase*, unsigned long>;

std::mutex g_mutex;
unsigned long g_lastId = 0;

// Never destroyed: services may die after this library's statics.
Ids& LiveIds() {
    static Ids* const ids = new Ids;
    return *ids;
}

}  // namespace

unsigned long Enter(const ServiceObjectBase* service) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    return LiveIds()[service] = ++g_lastId;
}

void Leave(const ServiceObjectBase* service) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    LiveIds().erase(service);
}

void Leave(const ServiceObjectBase* service, unsigned long id) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    const auto found = LiveIds().find(service);
    if (found != LiveIds().end() && found->second == id) LiveIds().erase(found);
}

unsigned long IdOf(const ServiceObjectBase* service) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    const auto found = LiveIds().find(service);
    return found != LiveIds().end() ? found->second : 0;
}

}  // namespace LiveServices
}  // namespace NS_BUNDLEMGR1
