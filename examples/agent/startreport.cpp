#include "startreport.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "bundlemgr/base.h"
#include "bundlemgr/bundle.h"
#include "bundlemgr/bundlemgr.h"

using NS_BUNDLEMGR1::BundleMgr;
using NS_BUNDLEMGR1::BundleObject;
using NS_BUNDLEMGR1::NameValueStru;
using NS_BUNDLEMGR1::ServiceObjectBase;

namespace {

constexpr char kBundleKey[] = "Bundle";

// In the order in which the manager initialises them.
std::vector<BundleObject*> LoadedBundles() {
    std::vector<std::tuple<bool, int, std::string, BundleObject*>> ordered;
    for (const std::string& name : ConfiguredBundles()) {
        BundleObject* const bundle = BundleMgr::Instance()->GetBundle(name);
        const bool core = name == "zo_base_bundle" || name == "zo_domain_bundle";
        if (bundle != nullptr) ordered.emplace_back(!core, bundle->GetBundleOrder(), name, bundle);
    }
    std::sort(ordered.begin(), ordered.end());
    std::vector<BundleObject*> bundles;
    bundles.reserve(ordered.size());
    for (const auto& entry : ordered) bundles.push_back(std::get<BundleObject*>(entry));
    return bundles;
}

// The first service of the bundle's svc.cfg that is not in its table, or "". One that
// fails is taken out of it.
std::string ServiceNotLoaded(BundleObject& bundle) {
    std::map<std::string, ServiceObjectBase*> services;
    bundle.GetAllServiceObjects(services);
    std::vector<NameValueStru> items;
    NS_BUNDLEMGR1::GetAllCfgFrmFile(items, NS_BUNDLEMGR1::GetCfgDirPath() + bundle.GetName() + "/svc.cfg", true);
    for (const NameValueStru& item : items) {
        const std::string::size_type colon = item.value.find(':');
        if (colon == std::string::npos) continue;
        std::string service = item.value.substr(colon + 1);
        if (services.count(service) == 0) return service;
    }
    return "";
}

}  // namespace

std::vector<std::string> ConfiguredBundles() {
    std::vector<NameValueStru> items;
    NS_BUNDLEMGR1::GetAllCfgFrmFile(items, NS_BUNDLEMGR1::GetCfgDirPath() + "bundlemgr.cfg", true);
    std::vector<std::string> names;
    for (const NameValueStru& item : items) {
        const bool known = std::find(names.begin(), names.end(), item.value) != names.end();
        if (item.name.rfind(kBundleKey, 0) == 0 && !known) names.push_back(item.value);
    }
    return names;
}

std::string BundlesNotLoaded() {
    std::string missing;
    for (const std::string& name : ConfiguredBundles()) {
        if (BundleMgr::Instance()->GetBundle(name) == nullptr) missing += (missing.empty() ? "" : ", ") + name;
    }
    return missing;
}

std::string BundleNotInitialised() {
    for (BundleObject* const bundle : LoadedBundles()) {
        const std::string service = ServiceNotLoaded(*bundle);
        if (!service.empty()) return bundle->GetName() + " (service " + service + ")";
        if (bundle->GetState() == NS_BUNDLEMGR1::BUNDLE_STATE_LOADED) return bundle->GetName();
    }
    return "";
}
