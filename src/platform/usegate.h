// Lets an object end while other threads still call it.
#pragma once

#include <atomic>
#include <cstddef>
#include <set>

#include <bundlemgr/detail/mutex.h>

namespace NS_BUNDLEMGR1 {

/// Stands in front of objects that are handed out as plain pointers and destroyed one day,
/// as singletons are. Whoever calls one passes the gate first, which looks the pointer up
/// without touching what it points to: a pointer that is out of date is turned away.
///
///     int Counter::Next() {
///         const UseGate::Use use(g_gate, this);
///         return use ? ++m_nLast : 0;
///     }
///     Counter::~Counter() { g_gate.Close(this); }
///
/// Thread safety: all operations may be called from any thread. A thread that is inside must
/// not close the gate, nor call into code that does: it would wait for itself.
///
/// Constant-initialised and never destroyed, so that it serves static constructors and
/// destructors as well.
class UseGate {
public:
    constexpr UseGate() = default;
    UseGate(const UseGate&) = delete;
    UseGate& operator=(const UseGate&) = delete;

    /// From now on the object lets others in.
    void Open(const void* object);

    /// Lets nobody in to the object any more and returns when all who were inside have left.
    /// Does nothing for an object that is not open.
    void Close(const void* object);

    /// One stay inside.
    class Use {
    public:
        Use(UseGate& gate, const void* object) : m_stay(gate.Enter(object)) {}
        ~Use() {
            if (m_stay != nullptr) m_stay->fetch_sub(1);
        }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

        /// @return false when the object is gone, or going, or null
        explicit operator bool() const { return m_stay != nullptr; }

    private:
        std::atomic<long>* const m_stay;
    };

    /// @name Around fork
    /// Threads that are inside do not exist in the child, and never leave.
    /// @{
    void BeforeFork() ZO_ACQUIRE(m_mutex);
    /// Calls `action` with each open object; between `BeforeFork` and one of the others only.
    template <class Action>
    void ForEachOpen(Action action) const ZO_REQUIRES(m_mutex) {
        if (m_pOpen == nullptr) return;
        for (const void* object : *m_pOpen) action(object);
    }
    void AfterForkInParent() ZO_RELEASE(m_mutex);
    void AfterForkInChild() ZO_RELEASE(m_mutex);
    /// @}

private:
    static constexpr std::size_t kCounters = 8;
    static constexpr std::size_t kCacheLine = 64;

    // Threads that run at once mostly count on different lines. Of the two counts of a line
    // newcomers take the one that nobody waits for.
    struct alignas(kCacheLine) Counter {
        std::atomic<long> inside[2] = {};
    };

    std::atomic<long>* Enter(const void* object);
    Counter& MyCounter();
    bool IsOpen(const void* object);
    void WaitForThoseInside();
    void WaitUntilEmpty(int side);

    std::atomic<const void*> m_pLatest{nullptr};  // of the open ones; looked at first
    std::atomic<std::size_t> m_nOpen{0};
    Counter m_counters[kCounters];
    std::atomic<int> m_side{0};              // which of the two counts newcomers take
    std::atomic<bool> m_isWaitedFor{false};  // claimed by the one who may change the side
    detail::Mutex m_mutex;
    std::set<const void*>* m_pOpen ZO_GUARDED_BY(m_mutex) = nullptr;  // made once, never deleted
};

}  // namespace NS_BUNDLEMGR1
