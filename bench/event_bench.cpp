// What does an event cost from its posting to its last handler, next to an ACE queue with a
// thread, and what does handing it to the handlers cost alone?
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#ifdef ZO_BENCH_BOOST
#include <boost/signals2/signal.hpp>
#endif

#include <bundlemgr/event.h>

#include "event/eventqueue.h"

using namespace NS_BUNDLEMGR1;

namespace {

using bench::kEvent;
using Clock = std::chrono::steady_clock;

constexpr int kEvents = 40000;  // a batch

struct Library {
    const char* name;
    bench::MakeEventQueue make;
};

double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

/// Lets the producers begin at once, and returns when the last handler had the last event.
double PostAndWait(bench::EventQueue& queue, int producers, const bench::CountingHandler& last, long expected) {
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < producers; ++i) {
        threads.emplace_back([&] {
            while (!go.load(std::memory_order_acquire)) std::this_thread::yield();
            for (int n = 0; n < kEvents / producers; ++n) queue.Post();
        });
    }
    const auto begin = Clock::now();
    go.store(true, std::memory_order_release);
    for (std::thread& thread : threads) thread.join();
    while (last.Count() < expected) std::this_thread::yield();
    return Seconds(Clock::now() - begin);
}

void PostedToHandled(benchmark::State& state, bench::MakeEventQueue make, int producers, int handlers) {
    std::vector<bench::CountingHandler> counters(static_cast<std::size_t>(handlers));
    std::vector<bench::Handler*> pointers;
    for (bench::CountingHandler& counter : counters) pointers.push_back(&counter);
    const std::unique_ptr<bench::EventQueue> queue = make(pointers);
    long expected = 0;
    for (auto _ : state) {
        expected += kEvents;
        state.SetIterationTime(PostAndWait(*queue, producers, counters.back(), expected));
    }
    state.SetItemsProcessed(state.iterations() * kEvents);
}

void Register(const Library& library) {
    for (const int handlers : {1, 10}) {
        for (const int producers : {1, 4}) {
            const std::string question =
                "event_" + std::to_string(producers) + "p_" + std::to_string(handlers) + "h/" + library.name;
            benchmark::RegisterBenchmark(
                question.c_str(),
                [=](benchmark::State& state) { PostedToHandled(state, library.make, producers, handlers); })
                ->UseManualTime()
                ->Iterations(3);
        }
    }
}

class Counter : public LightEventHandler {
public:
    void HandleLightEvent(int, LightEventParam*) override { benchmark::DoNotOptimize(++m_count); }
    long m_count = 0;
};

/// Events that wait already are handed out on this thread. What it costs to take them from
/// the queue is subtracted: that is what the same costs without a handler.
double ProcessBatch(LightEventMgr& events) {
    constexpr int kBatch = 4096;
    for (int i = 0; i < kBatch; ++i) events.Push_Msg(kEvent, nullptr, 0);
    const auto begin = Clock::now();
    for (int i = 0; i < kBatch; ++i) events.process_msg();
    return Seconds(Clock::now() - begin) / kBatch;
}

void DispatchOurs(benchmark::State& state) {
    LightEventMgr& events = *LightEventMgr::Instance();
    std::vector<Counter> counters(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        const double without = ProcessBatch(events);
        for (Counter& counter : counters) events.RegisterHandler(kEvent, &counter);
        const double with = ProcessBatch(events);
        for (Counter& counter : counters) events.UnRegisterHandler(kEvent, &counter);
        state.SetIterationTime(with > without ? with - without : 1e-12);
    }
    state.SetItemsProcessed(state.iterations());
    LightEventMgr::Destroy();
}

#ifdef ZO_BENCH_BOOST
void DispatchSignals2(benchmark::State& state) {
    constexpr int kBatch = 4096;
    boost::signals2::signal<void(int, LightEventParam*)> signal;
    std::vector<Counter> counters(static_cast<std::size_t>(state.range(0)));
    for (Counter& counter : counters) {
        LightEventHandler* const handler = &counter;
        signal.connect([handler](int id, LightEventParam* param) { handler->HandleLightEvent(id, param); });
    }
    for (auto _ : state) {
        const auto begin = Clock::now();
        for (int i = 0; i < kBatch; ++i) signal(kEvent, nullptr);
        state.SetIterationTime(Seconds(Clock::now() - begin) / kBatch);
    }
    state.SetItemsProcessed(state.iterations());
}
#endif

void RegisterDispatch(int handlers) {
    const std::string question = "dispatch_" + std::to_string(handlers) + "h/";
    benchmark::RegisterBenchmark((question + "ours").c_str(), &DispatchOurs)
        ->Arg(handlers)
        ->UseManualTime()
        ->Iterations(20);
#ifdef ZO_BENCH_BOOST
    benchmark::RegisterBenchmark((question + "Boost.Signals2").c_str(), &DispatchSignals2)
        ->Arg(handlers)
        ->UseManualTime()
        ->Iterations(20);
#endif
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    Register({"ours", &bench::MakeOurQueue});
    Register({"ACE queue", &bench::MakeAceQueue});
#ifdef ZO_BENCH_BOOST
    Register({"Boost.Asio", &bench::MakeAsioQueue});
#endif
#ifdef ZO_BENCH_POCO
    Register({"Poco", &bench::MakePocoQueue});
#endif
    RegisterDispatch(1);
    RegisterDispatch(10);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
