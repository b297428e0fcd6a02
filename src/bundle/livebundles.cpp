#include "bundle/livebundles.h"

#include <map>
#include <mutex>

namespace NS_BUNDLEMGR1 {
namespace LiveBundles {

namespace {

using Ids = std::map<const BundleObject*, unsigned long>;

std::mutex g_mutex;
unsigned long g_lastId = 0;

// Never destroyed: bundles may die after this library's statics.
Ids& LiveIds() {
    static Ids* const ids = new Ids;
    return *ids;
}

}  // namespace

void Enter(const BundleObject* bundle) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    LiveIds()[bundle] = ++g_lastId;
}

void Leave(const BundleObject* bundle) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    LiveIds().erase(bundle);
}

unsigned long IdOf(const BundleObject* bundle) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    const auto found = LiveIds().find(bundle);
    return found != LiveIds().end() ? found->second : 0;
}

}  // namespace LiveBundles
}  // namespace NS_BUNDLEMGR1
