// What the tests of interfaces and their proxies have in common.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "bundletest.h"
#include "src/bundlemgr/bundlemgrimpl.h"

namespace test {

using Interfaces = std::vector<NS_BUNDLEMGR1::ServiceInterface*>;

/// The interface that the tests ask for.
class Adder : public NS_BUNDLEMGR1::ServiceInterface {
public:
    explicit Adder(int start = 0) : m_start(start) {}
    std::string GetDescription() override { return "adder"; }
    void* GetImplementation() override { return nullptr; }
    virtual int Add(int number) { return m_start + number; }

private:
    const int m_start;
};

class BetterAdder : public Adder {
public:
    int Add(int number) override { return number + 1000; }
};

using AdderProxy = NS_BUNDLEMGR1::ServiceInterfaceProxy<Adder>;

/// Bundles "first", "second" and "third", configured in this order.
class ProxyTest : public BundleTest {
protected:
    ProxyTest() : m_server("KORU_SERVER_PATH", m_dir.Path()) {
        m_dir.Write("nbi/present", "");
        NS_BUNDLEMGR1::BundleMgr& manager = *NS_BUNDLEMGR1::BundleMgr::Instance();
        for (TestBundle* const bundle : {&m_first, &m_second, &m_third}) manager.RegisterBundle(bundle);
        Configure("Bundle=first\nBundle=second\nBundle=third\n");
    }

    void Configure(const std::string& content) {
        m_dir.Write("etc/oss_cfg/nbi/conf/bundlemgr.cfg", content);
        const char* none[] = {nullptr};
        std::list<std::string> names;
        static_cast<NS_BUNDLEMGR1::BundleMgrImpl*>(NS_BUNDLEMGR1::BundleMgr::Instance())->GetLoadBundles(names, none);
    }

    /// A service of a bundle that publishes an interface, owned by the test.
    TestService& Publish(const char* bundle, const char* name, NS_BUNDLEMGR1::ServiceInterface* interface) {
        m_services.push_back(std::make_unique<TestService>(m_trace, bundle, name));
        m_services.back()->m_pInterface = interface;
        return *m_services.back();
    }

    ScopedEnv m_server;
    TestBundle m_first{"first"};
    TestBundle m_second{"second"};
    TestBundle m_third{"third"};
    std::vector<std::unique_ptr<TestService>> m_services;
    Adder m_adder{10};
    Adder m_other{20};
    NamedInterface m_foreign;
};

}  // namespace test
