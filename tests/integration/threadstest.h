// Bundles, services and the host on several threads, in all the ways in which they can meet.
// Every wait has a deadline; a hang is a failure.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include <ace/Service_Repository.h>
#include <gmock/gmock.h>

#include <bundlemgr/bundle.h>
#include <bundlemgr/event.h>

#include "support/environment.h"
#include "support/hookedservices.h"
#include "support/wait.h"
#include "unit/log/logtest.h"

namespace test {

using AnyProxy = NS_BUNDLEMGR1::ServiceInterfaceProxy<NS_BUNDLEMGR1::ServiceInterface>;

class HookedBundle : public NS_BUNDLEMGR1::BundleObject {
public:
    explicit HookedBundle(std::string name) : m_name(std::move(name)) {}
    std::string GetName() override { return m_name; }
    int GetBundleOrder() override { return 0; }
    void SetInterface() override {}
    int Init() override {
        if (onInit) onInit();
        const int result = LoadAllServiceObjects();
        if (afterLoading) afterLoading();
        return result != 0 ? result : NS_BUNDLEMGR1::BundleObject::Init();
    }
    void Fini() override {
        if (onFini) onFini();
        UnLoadAllServiceObjects();
        NS_BUNDLEMGR1::BundleObject::Fini();
    }

    std::function<void()> onInit;
    std::function<void()> afterLoading;
    std::function<void()> onFini;

private:
    const std::string m_name;
};

inline bool IsInRepository(const char* service) {
    return ACE_Service_Repository::instance()->find(service, nullptr, false) == 0;
}

/// Bundles "fx_hooked_a" and "fx_hooked_b", registered and configured, with two services each.
class ThreadsTest : public LogTest {
protected:
    ThreadsTest() : m_server("KORU_SERVER_PATH", m_dir.Path()) {
        m_dir.Write("nbi/present", "");
        m_dir.Write("etc/oss_cfg/nbi/conf/bundlemgr.cfg", "Bundle=fx_hooked_a\nBundle=fx_hooked_b\n");
        Mgr().LoadAllBundles();  // only for the names: these bundles have no libraries
        Mgr().RegisterBundle(&m_a);
        Mgr().RegisterBundle(&m_b);
        Serve("a", "a1", "a2");
        Serve("b", "b1", "b2");
    }
    ~ThreadsTest() override {
        for (HookedBundle* const bundle : {&m_a, &m_b}) bundle->UnLoadAllServiceObjects();
        NS_BUNDLEMGR1::LightEventMgr::Destroy();
    }

    static NS_BUNDLEMGR1::BundleMgr& Mgr() { return *NS_BUNDLEMGR1::BundleMgr::Instance(); }

    void Serve(const std::string& bundle, const std::string& first, const std::string& second = "") {
        std::string lines = "service=fx_hooked:" + first + "\n";
        if (!second.empty()) lines += "service=fx_hooked:" + second + "\n";
        m_dir.Write("etc/oss_cfg/nbi/conf/fx_hooked_" + bundle + "/svc.cfg", lines);
    }

    ScopedEnv m_server;
    HookedBundle m_a{"fx_hooked_a"};
    HookedBundle m_b{"fx_hooked_b"};
};

}  // namespace test
