// What the tests of the bundle manager have in common.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>

#include <bundlemgr/base.h>
#include <bundlemgr/bundle.h>

#include "src/bundlemgr/bundlemgrimpl.h"
#include "support/elsewhere.h"
#include "support/environment.h"
#include "support/namedinterface.h"
#include "unit/log/logtest.h"

namespace test {

using Trace = std::vector<std::string>;
using StaticGuard = ACE_Guard<ACE_Recursive_Thread_Mutex>;

/// A bundle that notes what is asked of it.
class FakeBundle : public NS_BUNDLEMGR1::BundleObject {
public:
    FakeBundle(Trace& trace, std::string name, int order = 0, int initResult = 0)
        : m_trace(trace), m_name(std::move(name)), m_order(order), m_initResult(initResult) {}

    std::string GetName() override { return m_name; }
    int GetBundleOrder() override { return m_order; }
    void SetInterface() override { m_pInterface = &m_interface; }
    int Init() override {
        Note("init");
        if (onInit) onInit();
        if (m_initResult == 0) NS_BUNDLEMGR1::BundleObject::Init();
        return m_initResult;
    }
    void Fini() override {
        Note("fini");
        if (onFini) onFini();
        NS_BUNDLEMGR1::BundleObject::Fini();
    }
    void WaitThreadExit() override {
        Note("wait");
        if (onWait) onWait();
    }

    std::function<void()> onInit;
    std::function<void()> onFini;
    std::function<void()> onWait;

private:
    void Note(const std::string& what) { m_trace.push_back(what + " " + m_name); }

    Trace& m_trace;
    const std::string m_name;
    const int m_order;
    const int m_initResult;
    NamedInterface m_interface;
};

/// A manager whose bundles need no library.
class InProcessMgr : public NS_BUNDLEMGR1::BundleMgrImpl {
public:
    NS_BUNDLEMGR1::BundleObject* LoadBundle(const std::string& name) override {
        loaded.push_back(name);
        return name == "bad" ? nullptr : reinterpret_cast<NS_BUNDLEMGR1::BundleObject*>(this);
    }
    void GetBundlesInReverseOrder(std::list<NS_BUNDLEMGR1::BundleObject*>& out) override {
        for (NS_BUNDLEMGR1::BundleObject* const bundle : reversed) out.push_back(bundle);
    }
    Trace loaded;
    std::list<NS_BUNDLEMGR1::BundleObject*> reversed;
};

class BundleMgrTest : public LogTest {
protected:
    BundleMgrTest() : m_noServer("KORU_SERVER_PATH") {}

    NS_BUNDLEMGR1::BundleMgrImpl& Mgr() {
        return *static_cast<NS_BUNDLEMGR1::BundleMgrImpl*>(NS_BUNDLEMGR1::BundleMgr::Instance());
    }

    FakeBundle& Add(const std::string& name, int order = 0, int initResult = 0) {
        m_bundles.push_back(std::make_unique<FakeBundle>(m_trace, name, order, initResult));
        Mgr().RegisterBundle(m_bundles.back().get());
        return *m_bundles.back();
    }

    /// Writes bundlemgr.cfg and has it read.
    void Configure(const std::string& content) {
        const char* noCoreBundles[] = {nullptr};
        std::list<std::string> names;
        WriteConfiguration(content);
        Mgr().GetLoadBundles(names, noCoreBundles);
    }

    void WriteConfiguration(const std::string& content) {
        m_server.emplace("KORU_SERVER_PATH", m_dir.Path());
        m_dir.Write("nbi/present", "");
        m_dir.Write("etc/oss_cfg/nbi/conf/bundlemgr.cfg", content);
    }

    std::string ConfigurationFile() const { return m_dir / "nbi/../etc/oss_cfg/nbi/conf/bundlemgr.cfg"; }

    std::list<NS_BUNDLEMGR1::BundleObject*> Reversed() {
        std::list<NS_BUNDLEMGR1::BundleObject*> bundles;
        Mgr().GetBundlesInReverseOrder(bundles);
        return bundles;
    }

    bool TableIsFree() {
        return CanBeDoneElsewhere([this] { Mgr().GetBundle("any"); });
    }

    /// The records that were written: "<level> <text>".
    Trace Reported() {
        Trace reported;
        for (const LogRecord& record : ParseLog(Log())) {
            EXPECT_THAT(record, testing::AllOf(testing::Field(&LogRecord::bundle, "BundleMgr"),
                                               testing::Field(&LogRecord::service, "Core")));
            if (record.file == "bundlemgrimpl") reported.push_back(std::to_string(record.level) + " " + record.text);
        }
        return reported;
    }

    ScopedEnv m_noServer;
    std::optional<ScopedEnv> m_server;
    Trace m_trace;
    std::vector<std::unique_ptr<FakeBundle>> m_bundles;
};

}  // namespace test
