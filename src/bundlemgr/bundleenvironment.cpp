#include "src/bundlemgr/bundleenvironment.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <bundlemgr/base.h>

#include "src/corelog/corelog.h"
#include "src/platform/standardoutput.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr char kFileOpenFailed[] = "File :%s Open Failed \n";
constexpr char kBundleKeyPrefix[] = "Bundle";
constexpr std::size_t kBundleKeyPrefixLength = sizeof(kBundleKeyPrefix) - 1;
constexpr int kBundlePresent = 999;
constexpr char kServiceKey[] = "service";

// Each service of these bundles lives in a library of its own, named after the service.
constexpr const char* kBundlesWithServiceLibraries[] = {
    "zo_base_bundle", "zo_domain_bundle", "zo_corba_bundle", "zo_ascii_bundle", "zo_koru_corbaagent_bundle",
};

CoreLog g_log("bundleenvironment");

bool HasServiceLibraries(const std::string& library) {
    return std::find(std::begin(kBundlesWithServiceLibraries), std::end(kBundlesWithServiceLibraries), library) !=
           std::end(kBundlesWithServiceLibraries);
}

ServiceDirective DirectiveFor(const std::string& library, const std::string& service) {
    std::string token = "lib" + (HasServiceLibraries(library) ? service : library);
    std::string directive = "dynamic ";
    directive.append(service).append(" Service_Object * ").append(token);
    directive.append(":_make_").append(service).append("() \"\"");
    return {service, std::move(token), std::move(directive)};
}

}  // namespace

Config_Param::Config_Param(const char* cfgFileName) : m_strCfgFileName(cfgFileName), m_bRead(false) {}

Config_Param::~Config_Param() = default;

BundleMgr_Config_Param::BundleMgr_Config_Param(const char* cfgFileName) : Config_Param(cfgFileName) {}

BundleMgr_Config_Param::~BundleMgr_Config_Param() = default;

int BundleMgr_Config_Param::Read() {
    PrintOut("m_strCfgFileName=%s \n", m_strCfgFileName.c_str());
    std::vector<NameValueStru> items;
    if (!GetAllCfgFrmFile(items, m_strCfgFileName, true)) {
        g_log.Print(__LINE__, LOG_LEVEL_INFO, kFileOpenFailed, m_strCfgFileName.c_str());
        return -1;
    }
    for (const NameValueStru& item : items) {
        // A prefix test, so that keys may be numbered.
        if (item.name.compare(0, kBundleKeyPrefixLength, kBundleKeyPrefix) == 0) {
            m_mapBundleSet[item.value] = kBundlePresent;
            m_vecBundleList.push_back(item.value);
        } else {
            m_mapOtherItems[item.name] = item.value;
        }
    }
    return 0;
}

bool BundleMgr_Config_Param::ReadIfNeeded() {
    if (m_bRead || Read() == 0) return true;
    g_log.Print(__LINE__, LOG_LEVEL_INFO, "Failed in Read BundleMgr Config File \n");
    return false;
}

void BundleMgr_Config_Param::GetConfig(std::map<std::string, int>& bundleSet, std::vector<std::string>& bundleList) {
    if (!ReadIfNeeded()) return;
    bundleSet = m_mapBundleSet;
    bundleList = m_vecBundleList;
}

std::string BundleMgr_Config_Param::GetValue(const char* key) {
    if (!ReadIfNeeded()) return "";
    const auto found = m_mapOtherItems.find(key);
    return found != m_mapOtherItems.end() ? found->second : "";
}

SVC_Config_Param::SVC_Config_Param(const char* cfgFileName) : Config_Param(cfgFileName) {}

SVC_Config_Param::~SVC_Config_Param() = default;

int SVC_Config_Param::Read() {
    std::vector<NameValueStru> items;
    if (!GetAllCfgFrmFile(items, m_strCfgFileName, true)) {
        g_log.Print(__LINE__, LOG_LEVEL_INFO, kFileOpenFailed, m_strCfgFileName.c_str());
        return -1;
    }
    for (const NameValueStru& item : items) {
        if (item.name != kServiceKey) {
            g_log.Print(__LINE__, LOG_LEVEL_INFO, "Item name is not 'service'\n");
            return -1;
        }
        const std::string::size_type colon = item.value.find(':');
        if (colon == std::string::npos) continue;
        AddService(item.value.substr(0, colon), item.value.substr(colon + 1));
    }
    m_bRead = true;
    return 0;
}

// The first of a name stands.
void SVC_Config_Param::AddService(const std::string& library, const std::string& service) {
    const auto [place, isNew] = m_mapPlaces.emplace(service, m_vecServices.size());
    if (!isNew) return;
    try {
        m_vecServices.push_back(DirectiveFor(library, service));
    } catch (...) {
        m_mapPlaces.erase(place);
        throw;
    }
}

bool SVC_Config_Param::ReadIfNeeded(const char* serviceName) {
    if (m_bRead || Read() == 0) return true;
    g_log.Print(__LINE__, LOG_LEVEL_INFO, "Failed in Read %s 's SvcConfig File \n", serviceName);
    return false;
}

std::string SVC_Config_Param::GetServiceDirective(const char* serviceName) {
    if (!ReadIfNeeded(serviceName)) return "";
    const auto found = m_mapPlaces.find(serviceName);
    return found != m_mapPlaces.end() ? m_vecServices[found->second].directive : "";
}

std::vector<std::string> SVC_Config_Param::GetServiceNames() {
    std::vector<std::string> names;
    for (const ServiceDirective& service : GetServices()) names.push_back(service.service);
    return names;
}

const std::vector<ServiceDirective>& SVC_Config_Param::GetServices() {
    static const std::vector<ServiceDirective> s_none;
    return ReadIfNeeded("") ? m_vecServices : s_none;
}

}  // namespace NS_BUNDLEMGR1
