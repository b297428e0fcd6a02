// Two threads that must not overlook each other, one of them often, the other seldom.
#pragma once

#include <atomic>

namespace NS_BUNDLEMGR1 {

/// Orders a store before the loads that follow it, on both of two threads: each stores something
/// and then looks at what the other one stores, and at least one of them sees it.
///
///     often:   ProcessBarrier::Publish(m_current, handler);   seldom:  slot.store(nullptr);
///              if (slot.load() == nullptr) ...                         ProcessBarrier::Cross();
///                                                                      if (m_current.load() == handler) ...
///
/// The one who does it seldom pays for both: it has all threads of the process pass a memory barrier
/// (membarrier(2)). Where the system has none, or refuses it from some time on, both pay.
class ProcessBarrier {
public:
    ProcessBarrier() = delete;

    /// Stores the value for those that look for it after `Cross`.
    template <class Value>
    static void Publish(std::atomic<Value>& variable, Value value) {
        if (s_isThere.load(std::memory_order_relaxed)) {
            variable.store(value, std::memory_order_release);
            std::atomic_signal_fence(std::memory_order_seq_cst);
        } else {
            variable.store(value);
        }
    }

    /// Between this thread's stores, which are sequentially consistent, as its loads afterwards.
    static void Cross();

private:
    static std::atomic<bool> s_isThere;
    static const bool s_wasThere;
};

}  // namespace NS_BUNDLEMGR1
