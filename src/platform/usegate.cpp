#include "platform/usegate.h"

#include <chrono>
#include <thread>
#include <type_traits>

namespace NS_BUNDLEMGR1 {

static_assert(std::is_trivially_destructible_v<UseGate>, "serves static destructors");

namespace {

constexpr int kYields = 64;
constexpr std::chrono::milliseconds kPause(1);

}  // namespace

void UseGate::Open(const void* object) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_pOpen == nullptr) m_pOpen = new std::set<const void*>;
    m_pOpen->insert(object);
    m_nOpen.store(m_pOpen->size());
    m_pLatest.store(object);
}

void UseGate::Close(const void* object) {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_pOpen == nullptr || m_pOpen->erase(object) == 0) return;
        m_nOpen.store(m_pOpen->size());
        const void* latest = object;
        m_pLatest.compare_exchange_strong(latest, nullptr);
    }
    // Who enters from now on is turned away. So a counter that is seen at zero once has
    // nobody behind it who came before, whatever it says later.
    for (const Counter& counter : m_counters) {
        for (int i = 0; counter.inside.load() != 0; ++i) {
            if (i < kYields) {
                std::this_thread::yield();
            } else {
                std::this_thread::sleep_for(kPause);
            }
        }
    }
}

// Counted before the look-up: either the one who closes sees the count, or this thread
// sees that it has been closed.
std::atomic<long>* UseGate::Enter(const void* object) {
    std::atomic<long>& inside = MyCounter();
    inside.fetch_add(1);
    if (object != nullptr && (m_pLatest.load() == object || IsOpen(object))) return &inside;
    inside.fetch_sub(1);
    return nullptr;
}

std::atomic<long>& UseGate::MyCounter() {
    static std::atomic<std::size_t> s_next{0};
    thread_local const std::size_t t_mine = s_next.fetch_add(1, std::memory_order_relaxed) % kCounters;
    return m_counters[t_mine].inside;
}

bool UseGate::IsOpen(const void* object) {
    if (m_nOpen.load() == 0) return false;
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_pOpen != nullptr && m_pOpen->count(object) != 0;
}

void UseGate::BeforeFork() {
    m_mutex.lock();
}

void UseGate::AfterForkInParent() {
    m_mutex.unlock();
}

void UseGate::AfterForkInChild() {
    for (Counter& counter : m_counters) counter.inside.store(0);
    m_mutex.unlock();
}

}  // namespace NS_BUNDLEMGR1
