// A host that makes the calls it is told to, one after the other, and prints the results.
//
//     zo_test_host load init fini destroy
#include <atomic>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <list>
#include <map>
#include <string>

#include <ace/Service_Config.h>

#include <bundlemgr/base.h>
#include <bundlemgr/bundle.h>
#include <bundlemgr/bundlemgr.h>
#include <bundlemgr/event.h>

#include "fixtures/greeter.h"
#include "support/elsewhere.h"

namespace {

using NS_BUNDLEMGR1::BundleMgr;
using NS_BUNDLEMGR1::BundleObject;
using NS_BUNDLEMGR1::LightEventMgr;

/// Prints the events that services of the library post.
class RemovalHandler : public NS_BUNDLEMGR1::LightEventHandler {
public:
    void HandleLightEvent(int, NS_BUNDLEMGR1::LightEventParam*) override { ++m_events; }
    int Events() const { return m_events; }

private:
    std::atomic<int> m_events{0};
};

RemovalHandler g_removals;

BundleMgr& Mgr() {
    return *BundleMgr::Instance();
}

std::string NameOf(BundleObject* bundle) {
    return bundle != nullptr ? bundle->GetName() : "none";
}

std::string StateOf(const std::string& name) {
    BundleObject* const bundle = Mgr().GetBundle(name);
    return bundle != nullptr ? std::to_string(bundle->GetState()) : "none";
}

std::string ServicesOf(const std::string& name) {
    std::map<std::string, NS_BUNDLEMGR1::ServiceObjectBase*> services;
    Mgr().GetBundle(name)->GetAllServiceObjects(services);
    std::string names;
    for (const auto& service : services) names += " " + service.first;
    return names;
}

std::string BundlesInReverseOrder() {
    std::list<BundleObject*> bundles;
    Mgr().GetBundlesInReverseOrder(bundles);
    std::string names;
    for (BundleObject* const bundle : bundles) names += " " + NameOf(bundle);
    return names;
}

std::string InterfaceOf(const std::string& name) {
    auto* const greeter = dynamic_cast<fx::Greeter*>(Mgr().GetBundleInterface(name));
    return greeter != nullptr ? greeter->Greet() : "none";
}

bool IsMapped(const std::string& library) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.size() > library.size() && line.compare(line.size() - library.size(), library.size(), library) == 0) {
            return true;
        }
    }
    return false;
}

// Whether another thread can use the manager and a bundle, that is, finds no lock held.
std::string IsFree(const std::string& name) {
    const bool isFree = test::CanBeDoneElsewhere([name] {
        BundleObject* const bundle = Mgr().GetBundle(name);
        std::map<std::string, NS_BUNDLEMGR1::ServiceObjectBase*> services;
        if (bundle != nullptr) bundle->GetAllServiceObjects(services);
        ACE_Service_Config::current()->find(ACE_TEXT("any"));
    });
    return isFree ? "yes" : "no";
}

std::string StartEvents() {
    const int result = LightEventMgr::Instance()->Init();
    LightEventMgr::Instance()->RegisterHandler(NS_BUNDLEMGR1::LIGHT_EVENT_SERVICE_REMOVED, &g_removals);
    return std::to_string(result);
}

std::string WaitForRemovals(const std::string& count) {
    const bool arrived = test::WaitFor([&count] { return g_removals.Events() == std::stoi(count); });
    return arrived ? "arrived" : std::to_string(g_removals.Events());
}

std::string Remove(const std::string& service) {
    const std::string::size_type at = service.find('@');
    Mgr().GetBundle(service.substr(at + 1))->RemoveServiceObject(service.substr(0, at).c_str());
    return "done";
}

// A command, and what it prints for its argument.
using Command = std::function<std::string(const std::string&)>;

Command Silent(const std::function<void()>& action) {
    return [action](const std::string&) {
        action();
        return std::string("done");
    };
}

const std::map<std::string, Command>& Commands() {
    static const std::map<std::string, Command> commands = {
        {"load", [](const std::string&) { return std::to_string(Mgr().LoadAllBundles()); }},
        {"load-one", [](const std::string& name) { return NameOf(Mgr().LoadBundle(name)); }},
        {"init", [](const std::string&) { return std::to_string(Mgr().InitAllBundles()); }},
        {"fini", Silent([] { Mgr().FiniAllBundles(); })},
        {"wait", Silent([] { Mgr().WaitAllBundlesThreadExit(); })},
        {"wait-one",
         [](const std::string& name) {
             Mgr().GetBundle(name)->WaitThreadExit();
             return "done";
         }},
        {"corba-gone", Silent([] { NS_BUNDLEMGR1::g_isUnloadingCorba = true; })},
        {"destroy", Silent([] { BundleMgr::Destroy(); })},
        {"destroy-log", Silent([] { NS_BUNDLEMGR1::LogProxyDebugInfoBufMgr::Destroy(); })},
        {"events", [](const std::string&) { return StartEvents(); }},
        {"fini-events", Silent([] { LightEventMgr::Instance()->Fini(); })},
        {"destroy-events", Silent([] { LightEventMgr::Destroy(); })},
        {"removals", WaitForRemovals},
        {"load-services",
         [](const std::string& name) { return std::to_string(Mgr().GetBundle(name)->LoadAllServiceObjects()); }},
        {"unload-services",
         [](const std::string& name) {
             Mgr().GetBundle(name)->UnLoadAllServiceObjects();
             return "done";
         }},
        {"remove", Remove},
        {"bundle", [](const std::string& name) { return NameOf(Mgr().GetBundle(name)); }},
        {"state", StateOf},
        {"reset-state",
         [](const std::string& name) {
             Mgr().GetBundle(name)->SetState(NS_BUNDLEMGR1::BUNDLE_STATE_LOADED);
             return "done";
         }},
        {"services", ServicesOf},
        {"reverse", [](const std::string&) { return BundlesInReverseOrder(); }},
        {"interface", InterfaceOf},
        {"milestone",
         [](const std::string& number) {
             return test::WaitFor([&number] { return Mgr().GetIntSetting() == std::stoi(number); }) ? "reached"
                                                                                                    : "missed";
         }},
        {"greet", fx::GreetingOf},
        {"null",
         [](const std::string&) {
             return NS_BUNDLEMGR1::ServiceInterfaceProxy<fx::Greeter>::GetNullInterface()->GetDescription();
         }},
        {"mapped", [](const std::string& library) { return IsMapped(library) ? "yes" : "no"; }},
        {"free", IsFree},
    };
    return commands;
}

}  // namespace

int main(int argc, char* argv[]) {
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const std::string::size_type equals = word.find('=');
        const auto command = Commands().find(word.substr(0, equals));
        if (command == Commands().end()) {
            std::cerr << "zo_test_host: there is no command " << word << '\n';
            return 2;
        }
        const std::string result =
            command->second(equals != std::string::npos ? word.substr(equals + 1) : std::string());
        std::printf("> %s: %s\n", word.c_str(), result.c_str());
    }
    return 0;
}
