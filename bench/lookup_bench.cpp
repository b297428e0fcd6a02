// What does it cost to reach an interface through a proxy: again, next to reading a pointer, and
// for the first time, next to finding its name in a map under a mutex?
#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <bundlemgr/bundle.h>

using namespace NS_BUNDLEMGR1;

namespace {

class Clock : public ServiceInterface {
public:
    std::string GetDescription() override { return "Clock"; }
    void* GetImplementation() override { return this; }
};

Clock g_clock;

// ---- Again ----

ServiceInterfaceProxy<Clock> g_proxy("ClockSvc");
std::atomic<ServiceInterface*> g_pointer{&g_clock};
std::mutex g_mutex;
std::map<std::string, ServiceInterface*> g_map{{"ClockSvc", &g_clock}};

void LookUp(benchmark::State& state) {
    if (state.thread_index() == 0) SetIFBuf("ClockSvc", &g_clock);
    for (auto _ : state) benchmark::DoNotOptimize(g_proxy.GetInterface());
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(LookUp)->Name("lookup_cached/ours");

void ReadPointer(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(g_pointer.load(std::memory_order_acquire));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ReadPointer)->Name("lookup_cached/pointer");

void FindUnderMutex(benchmark::State& state) {
    for (auto _ : state) {
        const std::lock_guard<std::mutex> lock(g_mutex);
        benchmark::DoNotOptimize(dynamic_cast<Clock*>(g_map.find("ClockSvc")->second));
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(FindUnderMutex)->Name("lookup_cached/map under a mutex");

// ---- For the first time ----

class Bundle : public BundleObject {
public:
    explicit Bundle(std::string name) : m_name(std::move(name)) {}
    std::string GetName() override { return m_name; }
    int GetBundleOrder() override { return 1; }
    void SetInterface() override {}

private:
    const std::string m_name;
};

class Service : public ServiceObjectBase {
public:
    Service(const std::string& bundle, const std::string& name) : ServiceObjectBase(bundle.c_str(), name.c_str()) {
        m_pInterface = new Clock;
    }
    void ExitThreads() override {}
};

std::string ServiceName(int services, int i) {
    return "First" + std::to_string(services) + "Svc" + std::to_string(i);
}

/// The bundles stay until the process ends: what was found under a name is known for good. So each
/// run asks for names that nobody has asked for yet.
class Found {
public:
    explicit Found(int services) : m_services(services), m_bundleName("first_bundle_" + std::to_string(services)) {
        auto* const bundle = new Bundle(m_bundleName);
        BundleMgr::Instance()->RegisterBundle(bundle);
        for (int i = 0; i < services; ++i) {
            const std::string name = ServiceName(services, i);
            auto* const service = new Service(m_bundleName, name);
            m_map[name] = service;
        }
    }

    /// @return the next of the names that were not searched for, spread over all
    std::string NextName() {
        constexpr int kStride = 37;  // has no factor in common with the numbers of services
        m_last = (m_last + kStride) % m_services;
        return ServiceName(m_services, m_last);
    }

    const int m_services;
    const std::string m_bundleName;
    std::map<std::string, ServiceObjectBase*> m_map;

private:
    int m_last = 0;
};

Found& Services(int services) {
    static std::map<int, std::unique_ptr<Found>> s_found;
    std::unique_ptr<Found>& found = s_found[services];
    if (found == nullptr) found = std::make_unique<Found>(services);
    return *found;
}

template <class Search>
void Timed(benchmark::State& state, Search search) {
    using Steady = std::chrono::steady_clock;
    constexpr int kSearches = 6;  // in each of ten runs: 60 of the 64 names
    Found& services = Services(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        double seconds = 0;
        for (int i = 0; i < kSearches; ++i) {
            const std::string name = services.NextName();
            const auto begin = Steady::now();
            search(services, name);
            seconds += std::chrono::duration<double>(Steady::now() - begin).count();
        }
        state.SetIterationTime(seconds / kSearches);
    }
    state.SetItemsProcessed(state.iterations());
}

void FirstSearch(benchmark::State& state) {
    Timed(state, [](const Found& services, const std::string& name) {
        ServiceInterfaceProxy<Clock> proxy(name, services.m_bundleName);
        benchmark::DoNotOptimize(proxy.GetInterface());
    });
}

void FindInMap(benchmark::State& state) {
    Timed(state, [](const Found& services, const std::string& name) {
        const std::lock_guard<std::mutex> lock(g_mutex);
        benchmark::DoNotOptimize(services.m_map.find(name)->second);
    });
}

void RegisterFirst(int services) {
    const std::string question = "lookup_first_" + std::to_string(services) + "/";
    benchmark::RegisterBenchmark((question + "ours").c_str(), &FirstSearch)
        ->Arg(services)
        ->UseManualTime()
        ->Iterations(1);
    benchmark::RegisterBenchmark((question + "map").c_str(), &FindInMap)->Arg(services)->UseManualTime()->Iterations(1);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    for (const int services : {64, 1000, 4000}) RegisterFirst(services);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
