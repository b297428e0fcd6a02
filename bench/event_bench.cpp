// How many events a second pass from one posting thread through one handler, next to
// the plainest queue that could do it?
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include <benchmark/benchmark.h>

#include <bundlemgr/event.h>

using namespace NS_BUNDLEMGR1;

namespace {

constexpr int kEvent = 7;
constexpr int kBatch = 1000;

class Counter : public LightEventHandler {
public:
    void HandleLightEvent(int, LightEventParam*) override { ++m_count; }
    std::atomic<long> m_count{0};
};

void LightEvents(benchmark::State& state) {
    LightEventMgr* const events = LightEventMgr::Instance();
    Counter counter;
    events->RegisterHandler(kEvent, &counter);
    if (events->Init() != 1) state.SkipWithError("no worker");
    long posted = 0;
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i) events->Push_Msg(kEvent, nullptr, 0);
        posted += kBatch;
        while (counter.m_count.load() < posted) std::this_thread::yield();
    }
    state.SetItemsProcessed(posted);
    LightEventMgr::Destroy();
}
BENCHMARK(LightEvents)->UseRealTime();

void PlainQueue(benchmark::State& state) {
    std::mutex mutex;
    std::condition_variable ready;
    std::deque<int> queue;
    bool stop = false;
    std::atomic<long> count{0};
    std::thread worker([&] {
        std::unique_lock<std::mutex> lock(mutex);
        while (true) {
            ready.wait(lock, [&] { return stop || !queue.empty(); });
            if (queue.empty()) return;
            queue.pop_front();
            lock.unlock();
            ++count;
            lock.lock();
        }
    });
    long posted = 0;
    for (auto _ : state) {
        for (int i = 0; i < kBatch; ++i) {
            const std::lock_guard<std::mutex> lock(mutex);
            queue.push_back(kEvent);
            ready.notify_one();
        }
        posted += kBatch;
        while (count.load() < posted) std::this_thread::yield();
    }
    state.SetItemsProcessed(posted);
    {
        const std::lock_guard<std::mutex> lock(mutex);
        stop = true;
    }
    ready.notify_one();
    worker.join();
}
BENCHMARK(PlainQueue)->UseRealTime();

}  // namespace
