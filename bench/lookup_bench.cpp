// What does it cost to reach an interface that a proxy has found before, next to reading a
// pointer? The first search is lifecycle_bench's.
#include <atomic>
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

}  // namespace

BENCHMARK_MAIN();
