// What the event benchmark asks of each queue.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

#include <bundlemgr/event.h>

namespace bench {

constexpr int kEvent = 7;

/// What every queue calls for each event: the same class, through the same virtual operation.
using Handler = NS_BUNDLEMGR1::LightEventHandler;

/// Counts on the one thread that calls it; others may look.
class CountingHandler : public Handler {
public:
    void HandleLightEvent(int, NS_BUNDLEMGR1::LightEventParam*) override {
        m_count.store(m_count.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }
    long Count() const { return m_count.load(std::memory_order_acquire); }

private:
    std::atomic<long> m_count{0};
};

/// A queue with a thread that takes the events in the order posted and hands each to all
/// handlers. Its end ends the thread.
class EventQueue {
public:
    virtual ~EventQueue() = default;

    /// May be called from any thread.
    virtual void Post() = 0;
};

/// @param handlers stay the caller's
using MakeEventQueue = std::unique_ptr<EventQueue> (*)(const std::vector<Handler*>& handlers);

std::unique_ptr<EventQueue> MakeOurQueue(const std::vector<Handler*>& handlers);
std::unique_ptr<EventQueue> MakeAceQueue(const std::vector<Handler*>& handlers);
std::unique_ptr<EventQueue> MakeAsioQueue(const std::vector<Handler*>& handlers);
std::unique_ptr<EventQueue> MakePocoQueue(const std::vector<Handler*>& handlers);

}  // namespace bench
