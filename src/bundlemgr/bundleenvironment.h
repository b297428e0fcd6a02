// Readers of the manager's and the bundles' configuration files.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "src/configurator/servicedirective.h"

namespace NS_BUNDLEMGR1 {

/// Base of the configuration-file readers. Thread safety: none.
class Config_Param {
public:
    /// @param cfgFileName path of the file; not null
    explicit Config_Param(const char* cfgFileName);
    virtual ~Config_Param();

    /// Reads the file into the tables of the derived class. @return 0, or -1
    virtual int Read() = 0;

protected:
    std::string m_strCfgFileName;
    bool m_bRead;  // set by a reader that need not read its file again
};

/// Reads `bundlemgr.cfg`: the names of the bundles to load, in order.
///
///     Bundle=zo_base_bundle
///     Bundle2=zo_corba_bundle
///
/// Keys that begin with "Bundle" name bundles; all others are kept for `GetValue`. The
/// file is read anew by every call.
class BundleMgr_Config_Param : public Config_Param {
public:
    explicit BundleMgr_Config_Param(const char* cfgFileName);
    ~BundleMgr_Config_Param() override;

    /// Adds the file's entries to the tables. @return 0, or -1 when it cannot be opened
    int Read() override;

    /// @param bundleSet  replaced by the bundle names, each with the value 999
    /// @param bundleList replaced by the bundle names in file order, duplicates kept
    /// When the file cannot be read, both stay as they are.
    void GetConfig(std::map<std::string, int>& bundleSet, std::vector<std::string>& bundleList);

    /// @return the value of a key that names no bundle, or ""
    std::string GetValue(const char* key);

private:
    bool ReadIfNeeded();

    std::map<std::string, int> m_mapBundleSet;
    std::vector<std::string> m_vecBundleList;
    std::map<std::string, std::string> m_mapOtherItems;
};

/// Reads a bundle's `svc.cfg` and makes an ACE Service Configurator directive of each
/// entry.
///
///     service=nbi_agent:AgentSvc
///
/// names the service AgentSvc in libnbi_agent.so. A file that was read well is not
/// read again.
class SVC_Config_Param : public Config_Param {
public:
    explicit SVC_Config_Param(const char* cfgFileName);
    ~SVC_Config_Param() override;

    /// @return 0; -1 when the file cannot be opened or holds an entry with another key
    ///         than "service", which ends the reading there
    int Read() override;

    /// @return the directive of a service, or "" where there is none
    std::string GetServiceDirective(const char* serviceName);

    /// @return the names of the services in file order, each once
    std::vector<std::string> GetServiceNames();

    /// @return the services in file order, each once; valid until the next `Read`
    const std::vector<ServiceDirective>& GetServices();

private:
    bool ReadIfNeeded(const char* serviceName);
    void AddService(const std::string& library, const std::string& service);

    std::map<std::string, std::size_t> m_mapPlaces;  // of the services in the list, by name
    std::vector<ServiceDirective> m_vecServices;
};

}  // namespace NS_BUNDLEMGR1
