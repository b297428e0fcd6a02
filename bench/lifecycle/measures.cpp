#include "lifecycle/measures.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <list>
#include <memory>
#include <vector>

#include <ace/Service_Config.h>

#include <bundlemgr/bundle.h>
#include <bundlemgr/event.h>
#ifdef ZO_BENCH_POCO
#include <Poco/ClassLoader.h>

#include "lifecycle/pocoservice.h"
#endif

#include "lifecycle/scene.h"

namespace lifecycle {

namespace {

using namespace NS_BUNDLEMGR1;
using Clock = std::chrono::steady_clock;

double MicrosecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
}

template <class Action>
double Milliseconds(Action action) {
    const Clock::time_point begin = Clock::now();
    action();
    return MicrosecondsSince(begin) / 1000;
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void Require(bool isTrue, const char* what) {
    if (isTrue) return;
    std::fprintf(stderr, "lifecycle_bench: %s\n", what);
    std::_Exit(1);
}

double ResidentBytes() {
    long total = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

std::string PartFile(const std::string& kind, int number) {
    return "lib" + PartName(kind, number) + ".so";
}

std::string ServiceName(const std::string& library, int number) {
    return library + "s" + std::to_string(number);
}

std::string Directive(const std::string& library, const std::string& service) {
    return "dynamic " + service + " Service_Object * lib" + library + ":_make_" + service + "() \"\"";
}

// ---- Start and stop -------------------------------------------------------------------------------

// A host has said that it starts: the log is open, and the manager there.
void BeginHost() {
    BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("Host")->Write(LOG_LEVEL_INFO, "starting\n");
    LightEventMgr::Instance()->Init();
}

Figures OurStartAndStop() {
    BeginHost();
    BundleMgr* const manager = BundleMgr::Instance();
    Figures figures;
    figures["start"] = Milliseconds([manager] {
        Require(manager->LoadAllBundles() == 0, "a bundle was not loaded");
        Require(manager->InitAllBundles() == 0, "a bundle was not initialised");
    });
    figures["stop"] = Milliseconds([manager] { manager->FiniAllBundles(); });
    std::list<BundleObject*> bundles;
    manager->GetBundlesInReverseOrder(bundles);
    figures["stop"] += Milliseconds([&bundles] {
        for (BundleObject* const bundle : bundles) bundle->WaitThreadExit();
    });
    LightEventMgr::Destroy();
    figures["stop"] += Milliseconds([] { BundleMgr::Destroy(); });
    return figures;
}

Figures BareStartAndStop(const std::string& kind, const std::string& servicesKind, int count) {
    BeginHost();
    std::vector<void*> libraries;
    Figures figures;
    figures["start"] = Milliseconds([&] {
        for (int number = 0; number < count; ++number) {
            libraries.push_back(dlopen(PartFile(kind, number).c_str(), RTLD_NOW | RTLD_GLOBAL));
            Require(libraries.back() != nullptr, "a library was not opened");
        }
        for (int number = 0; number < count; ++number) {
            const std::string library = PartName(servicesKind, number);
            for (int k = 0; k < kServices; ++k) {
                const std::string directive = Directive(library, ServiceName(library, k));
                Require(ACE_Service_Config::process_directive(directive.c_str()) == 0, "a service was not loaded");
            }
        }
    });
    figures["stop"] = Milliseconds([&] {
        for (int number = count; number-- > 0;) {
            for (int k = kServices; k-- > 0;) {
                Require(ACE_Service_Config::remove(ServiceName(PartName(servicesKind, number), k).c_str()) == 0,
                        "a service was not removed");
            }
        }
        for (void* const library : libraries) dlclose(library);
    });
    LightEventMgr::Destroy();
    return figures;
}

#ifdef ZO_BENCH_POCO
Figures PocoStartAndStop(int count) {
    Poco::ClassLoader<PocoService> loader;
    std::vector<std::unique_ptr<PocoService>> services;
    Figures figures;
    figures["start"] = Milliseconds([&] {
        for (int number = 0; number < count; ++number) loader.loadLibrary(PartFile("poco", number));
        for (int number = 0; number < count; ++number) {
            for (const auto* const maker : *loader.findManifest(PartFile("poco", number))) {
                services.emplace_back(maker->create());
                Require(services.back()->Init() == 0, "an object was not initialised");
            }
        }
    });
    figures["stop"] = Milliseconds([&] {
        while (!services.empty()) services.pop_back();
        for (int number = 0; number < count; ++number) loader.unloadLibrary(PartFile("poco", number));
    });
    return figures;
}
#endif

// ---- Reload ---------------------------------------------------------------------------------------

template <class Action>
Figures RepeatReload(int count, Action reload) {
    constexpr int kWarmUp = 100;
    constexpr int kLast = 200;
    for (int round = 0; round < kWarmUp; ++round) reload();
    const double before = ResidentBytes();
    std::vector<double> lastCycles(kLast);
    const Clock::time_point begin = Clock::now();
    for (int round = 0; round < count; ++round) {
        const Clock::time_point cycle = Clock::now();
        reload();
        lastCycles[static_cast<std::size_t>(round % kLast)] = MicrosecondsSince(cycle);
    }
    Figures figures;
    figures["total"] = MicrosecondsSince(begin) / 1000;
    figures["memory"] = (ResidentBytes() - before) / count;
    figures["cycle"] = Median(lastCycles);
    return figures;
}

// ---- First search ---------------------------------------------------------------------------------

class Thing : public ServiceInterface {
public:
    std::string GetDescription() override { return "Thing"; }
    void* GetImplementation() override { return this; }
};

class ThingService : public ServiceObjectBase {
public:
    ThingService(const char* bundle, const char* name) : ServiceObjectBase(bundle, name) { m_pInterface = &m_thing; }
    void ExitThreads() override {}

private:
    Thing m_thing;
};

class ThingBundle : public BundleObject {
public:
    std::string GetName() override { return "things"; }
    int GetBundleOrder() override { return 1; }
    void SetInterface() override {}
};

std::string ThingName(int number) {
    return "Thing" + std::to_string(number) + "Svc";
}

template <class Find>
Figures SearchEach(int count, Find find) {
    std::vector<double> searches;
    for (int number = 0; number < count; number += std::max(1, count / 64)) {
        const Clock::time_point begin = Clock::now();
        find(number);
        searches.push_back(MicrosecondsSince(begin));
    }
    return {{"search", Median(searches)}};
}

}  // namespace

Figures StartAndStop(const std::string& kind, int count) {
    Scene scene;
    // Also where nobody reads it: a thousand files that were just written make the machine slower.
    scene.Configure(kind, kind == "far" ? "svc" : kind, count);
#ifdef ZO_BENCH_POCO
    if (kind == "poco") return PocoStartAndStop(count);
#endif
    if (kind == "raw") return BareStartAndStop("raw", "raw", count);
    if (kind == "bare-own") return BareStartAndStop("own", "own", count);
    if (kind == "bare-far") return BareStartAndStop("far", "svc", count);
    return OurStartAndStop();
}

Figures Reload(const std::string& kind, int count) {
    const std::string library = PartName(kind, 0);
    const std::string service = ServiceName(library, 0);
    const std::string directive = Directive(library, service);
    if (kind == "raw") {
        return RepeatReload(count, [&] {
            Require(ACE_Service_Config::process_directive(directive.c_str()) == 0, "the service was not loaded");
            ACE_Service_Config::remove(service.c_str());
        });
    }
    Scene scene;
    scene.ConfigureOne(library, library, service);
    LightEventMgr::Instance()->Init();
    BundleMgr* const manager = BundleMgr::Instance();
    Require(manager->LoadAllBundles() == 0 && manager->InitAllBundles() == 0, "the bundle was not initialised");
    BundleObject* const bundle = manager->GetBundle(library);
    const Figures figures = RepeatReload(count, [&] {
        bundle->RemoveServiceObject(service.c_str());
        Require(bundle->LoadAllServiceObjects() == 0, "the service was not loaded");
    });
    manager->FiniAllBundles();
    LightEventMgr::Destroy();
    BundleMgr::Destroy();
    return figures;
}

Figures FirstSearch(const std::string& kind, int count) {
    const Scene scene;
    ThingBundle bundle;
    BundleMgr::Instance()->RegisterBundle(&bundle);
    std::vector<std::unique_ptr<ThingService>> services;
    std::map<std::string, ServiceInterface*> map;
    for (int number = 0; number < count; ++number) {
        services.push_back(std::make_unique<ThingService>("things", ThingName(number).c_str()));
        map[ThingName(number)] = services.back()->GetInterface();
    }
    if (kind == "raw") {
        return SearchEach(count,
                          [&map](int number) { Require(map.find(ThingName(number)) != map.end(), "not found"); });
    }
    return SearchEach(count, [](int number) {
        Require(ServiceInterfaceProxy<Thing>(ThingName(number), "things").GetInterface() != nullptr, "not found");
    });
}

}  // namespace lifecycle
