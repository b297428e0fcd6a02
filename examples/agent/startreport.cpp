#include "startreport.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <tuple>

#include <unistd.h>

#include <bundlemgr/base.h>
#include <bundlemgr/bundle.h>
#include <bundlemgr/bundlemgr.h>

#include "configlines.h"

using NS_BUNDLEMGR1::BundleMgr;
using NS_BUNDLEMGR1::BundleObject;
using NS_BUNDLEMGR1::NameValueStru;
using NS_BUNDLEMGR1::ServiceObjectBase;

namespace {

constexpr char kBundleKey[] = "Bundle";

// "cannot <what> <path>: <reason>" from errno.
std::string Cannot(const char* what, const std::string& path) {
    return std::string("cannot ") + what + " " + path + ": " + std::strerror(errno);
}

// "" for a file that can be read. Those who read the configuration take one that cannot
// be for an empty one.
std::string ReadTrouble(const std::string& file) {
    const std::string trouble = alarms::ConfigLines(file).Trouble();
    return trouble.empty() ? "" : "cannot read " + file + ": " + trouble;
}

std::string ServicesFile(const std::string& bundle) {
    return NS_BUNDLEMGR1::GetCfgDirPath() + bundle + "/svc.cfg";
}

std::vector<BundleObject*> LoadedBundles() {
    std::vector<BundleObject*> bundles;
    for (const std::string& name : ConfiguredBundles()) {
        BundleObject* const bundle = BundleMgr::Instance()->GetBundle(name);
        if (bundle != nullptr) bundles.push_back(bundle);
    }
    return bundles;
}

// Sorts them by what `key` makes of each.
template <class Key>
std::vector<BundleObject*> Sorted(std::vector<BundleObject*> bundles, Key key) {
    std::sort(bundles.begin(), bundles.end(),
              [&key](BundleObject* left, BundleObject* right) { return key(*left) < key(*right); });
    return bundles;
}

// The first service of the bundle's svc.cfg that is not in its table, or "". One that
// fails is taken out of it.
std::string ServiceNotLoaded(BundleObject& bundle) {
    std::map<std::string, ServiceObjectBase*> services;
    bundle.GetAllServiceObjects(services);
    for (const std::string& service : ConfiguredServices(bundle.GetName())) {
        if (services.count(service) == 0) return service;
    }
    return "";
}

}  // namespace

std::string Unconfigured() {
    // What the configuration's path begins with, and then leaves again: no file is found
    // where this directory is missing, however much the file is there.
    const std::string base = NS_BUNDLEMGR1::GetKORUEnvironment();
    if (base.empty()) return "no installation root, give --root or set KORU_SERVER_PATH";
    if (access((base + "/.").c_str(), X_OK) == -1) return Cannot("enter", base);
    const std::string file = NS_BUNDLEMGR1::GetCfgDirPath() + "bundlemgr.cfg";
    std::string trouble = ReadTrouble(file);
    if (!trouble.empty()) return trouble;
    return ConfiguredBundles().empty() ? "no bundle is named in " + file : "";
}

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

std::vector<BundleObject*> BundlesInInitOrder() {
    return Sorted(LoadedBundles(), [](BundleObject& bundle) {
        const std::string name = bundle.GetName();
        const bool core = name == "zo_base_bundle" || name == "zo_domain_bundle";
        return std::make_tuple(!core, bundle.GetBundleOrder(), name);
    });
}

std::vector<BundleObject*> BundlesInFiniOrder() {
    return Sorted(LoadedBundles(), [](BundleObject& bundle) {
        return std::make_tuple(-static_cast<long>(bundle.GetBundleOrder()), bundle.GetName());
    });
}

std::vector<std::string> ConfiguredServices(const std::string& bundle) {
    std::vector<NameValueStru> items;
    NS_BUNDLEMGR1::GetAllCfgFrmFile(items, ServicesFile(bundle), true);
    std::vector<std::string> services;
    for (const NameValueStru& item : items) {
        const std::string::size_type colon = item.value.find(':');
        if (colon != std::string::npos) services.push_back(item.value.substr(colon + 1));
    }
    return services;
}

std::vector<std::string> UnreadableServices() {
    std::vector<std::string> troubles;
    for (const std::string& name : ConfiguredBundles()) {
        const std::string trouble = ReadTrouble(ServicesFile(name));
        if (!trouble.empty()) troubles.push_back(trouble + "; " + name + " has no services");
    }
    return troubles;
}

std::string BundlesNotLoaded() {
    std::string missing;
    for (const std::string& name : ConfiguredBundles()) {
        if (BundleMgr::Instance()->GetBundle(name) == nullptr) missing += (missing.empty() ? "" : ", ") + name;
    }
    return missing;
}

std::string LogTrouble() {
    const std::string directory = NS_BUNDLEMGR1::GetNBILogPath();
    return access(directory.c_str(), W_OK | X_OK) == -1 ? Cannot("log in", directory) : "";
}

std::string BundleNotInitialised() {
    for (BundleObject* const bundle : BundlesInInitOrder()) {
        const std::string service = ServiceNotLoaded(*bundle);
        if (!service.empty()) return bundle->GetName() + " (service " + service + ")";
        if (bundle->GetState() == NS_BUNDLEMGR1::BUNDLE_STATE_LOADED) return bundle->GetName();
    }
    return "";
}
