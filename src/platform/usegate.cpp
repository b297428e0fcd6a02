#include "src/platform/usegate.h"

#include <type_traits>

#include "src/platform/waituntil.h"

namespace NS_BUNDLEMGR1 {

static_assert(std::is_trivially_destructible_v<UseGate>, "serves static destructors");

void UseGate::Open(const void* object) {
    const detail::Guard guard(m_mutex);
    if (m_pOpen == nullptr) m_pOpen = new std::set<const void*>;
    m_pOpen->insert(object);
    m_nOpen.store(m_pOpen->size());
    m_pLatest.store(object);
}

void UseGate::Close(const void* object) {
    {
        const detail::Guard guard(m_mutex);
        if (m_pOpen == nullptr || m_pOpen->erase(object) == 0) return;
        m_nOpen.store(m_pOpen->size());
        const void* latest = object;
        m_pLatest.compare_exchange_strong(latest, nullptr);
    }
    WaitForThoseInside();
}

// Those inside may be on either side: a thread that was slow to count may be on the one that
// newcomers have not used since the last time. The sides are waited for one after the other
// while newcomers count on the other one, so that a stream of them keeps nobody waiting.
void UseGate::WaitForThoseInside() {
    WaitUntil([this] { return !m_isWaitedFor.exchange(true); });
    const int side = m_side.load();
    WaitUntilEmpty(1 - side);
    m_side.store(1 - side);
    WaitUntilEmpty(side);
    m_isWaitedFor.store(false);
}

void UseGate::WaitUntilEmpty(int side) {
    for (const Counter& counter : m_counters) {
        WaitUntil([&counter, side] { return counter.inside[side].load() == 0; });
    }
}

// Counted before the look-up: either the one who closes sees the count, or this thread
// sees that it has been closed.
std::atomic<long>* UseGate::Enter(const void* object) {
    std::atomic<long>& inside = MyCounter().inside[m_side.load()];
    inside.fetch_add(1);
    if (object != nullptr && (m_pLatest.load() == object || IsOpen(object))) return &inside;
    inside.fetch_sub(1);
    return nullptr;
}

UseGate::Counter& UseGate::MyCounter() {
    static std::atomic<std::size_t> s_next{0};
    thread_local const std::size_t t_mine = s_next.fetch_add(1, std::memory_order_relaxed) % kCounters;
    return m_counters[t_mine];
}

bool UseGate::IsOpen(const void* object) {
    if (m_nOpen.load() == 0) return false;
    const detail::Guard guard(m_mutex);
    return m_pOpen != nullptr && m_pOpen->count(object) != 0;
}

void UseGate::BeforeFork() {
    m_mutex.acquire();
}

void UseGate::AfterForkInParent() {
    m_mutex.release();
}

void UseGate::AfterForkInChild() {
    for (Counter& counter : m_counters) {
        for (std::atomic<long>& inside : counter.inside) inside.store(0);
    }
    m_isWaitedFor.store(false);
    m_mutex.release();
}

}  // namespace NS_BUNDLEMGR1
