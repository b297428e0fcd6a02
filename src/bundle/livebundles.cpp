#include "bundle/livebundles.h"

#include <mutex>
#include <set>

namespace NS_BUNDLEMGR1 {
namespace LiveBundles {

namespace {

std::mutex g_mutex;

// Never destroyed: bundles may die after this library's statics.
std::set<const BundleObject*>& Bundles() {
    static std::set<const BundleObject*>* const bundles = new std::set<const BundleObject*>;
    return *bundles;
}

}  // namespace

void Enter(const BundleObject* bundle) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    Bundles().insert(bundle);
}

void Leave(const BundleObject* bundle) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    Bundles().erase(bundle);
}

bool Contains(const BundleObject* bundle) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    return Bundles().count(bundle) != 0;
}

}  // namespace LiveBundles
}  // namespace NS_BUNDLEMGR1
