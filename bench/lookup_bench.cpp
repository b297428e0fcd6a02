// What does it cost to reach a known interface through a proxy, next to a map under a
// mutex?
#include <map>
#include <mutex>
#include <string>

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
ServiceInterfaceProxy<Clock> g_proxy("ClockSvc");

void ProxyLookup(benchmark::State& state) {
    if (state.thread_index() == 0) SetIFBuf("ClockSvc", &g_clock);
    for (auto _ : state) benchmark::DoNotOptimize(g_proxy.GetInterface());
}
BENCHMARK(ProxyLookup)->Threads(1)->Threads(2);

std::mutex g_mutex;
std::map<std::string, ServiceInterface*> g_map{{"ClockSvc", &g_clock}};

void MapUnderMutex(benchmark::State& state) {
    for (auto _ : state) {
        const std::lock_guard<std::mutex> lock(g_mutex);
        benchmark::DoNotOptimize(dynamic_cast<Clock*>(g_map.find("ClockSvc")->second));
    }
}
BENCHMARK(MapUnderMutex)->Threads(1)->Threads(2);

}  // namespace
