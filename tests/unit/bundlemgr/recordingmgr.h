// A bundle manager in the place of the real one.
#pragma once

#include <list>
#include <stdexcept>
#include <string>

#include <bundlemgr/bundle.h>

#include "support/namedinterface.h"

namespace test {

/// Notes which of its operations ran last.
class RecordingMgr : public NS_BUNDLEMGR1::BundleMgr {
public:
    ~RecordingMgr() noexcept(false) override {
        s_called = "~";
        if (s_throwing) throw std::runtime_error("the last bundle threw");
    }
    void RegisterBundle(NS_BUNDLEMGR1::BundleObject* pBundle) override { Called("RegisterBundle", pBundle); }
    int InitAllBundles() override { return Called("InitAllBundles"); }
    void WaitAllBundlesThreadExit() override { Called("WaitAllBundlesThreadExit"); }
    void FiniAllBundles() override { Called("FiniAllBundles"); }
    NS_BUNDLEMGR1::BundleObject* GetBundle(const std::string& name) override { return Found("GetBundle " + name); }
    NS_BUNDLEMGR1::BundleObject* LoadBundle(const std::string& name) override { return Found("LoadBundle " + name); }
    int LoadAllBundles() override { return Called("LoadAllBundles"); }
    void GetBundlesInReverseOrder(std::list<NS_BUNDLEMGR1::BundleObject*>& out) override {
        Called("GetBundlesInReverseOrder");
        out.push_back(m_found);
    }
    NS_BUNDLEMGR1::ServiceInterface* GetBundleInterface(const std::string& name) override {
        Called("GetBundleInterface " + name);
        return &m_interface;
    }
    NS_BUNDLEMGR1::LogProxyMgr* GetLogProxyMgr() override {
        Called("GetLogProxyMgr");
        return nullptr;
    }
    void SetIntSetting(const int& value) override { Called("SetIntSetting " + std::to_string(value)); }
    int GetIntSetting() override { return Called("GetIntSetting"); }
    int GetMgrPhase() override { return Called("GetMgrPhase"); }
    void SetMgrPhase(const int& phase) override { Called("SetMgrPhase " + std::to_string(phase)); }

    static void Become(NS_BUNDLEMGR1::BundleMgr* manager) { m_pInstance = manager; }

    inline static std::string s_called;
    inline static bool s_throwing = false;

private:
    int Called(const std::string& operation, const void* object = nullptr) {
        s_called = operation + (object == m_found ? " found" : "");
        return 42;
    }
    NS_BUNDLEMGR1::BundleObject* Found(const std::string& operation) {
        Called(operation);
        return m_found;
    }

    NS_BUNDLEMGR1::BundleObject* const m_found =
        reinterpret_cast<NS_BUNDLEMGR1::BundleObject*>(this);  // never looked into
    NamedInterface m_interface;
};

}  // namespace test
