// Who is being called, and who is about to be.
#pragma once

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <new>
#include <vector>

#include <bundlemgr/detail/mutex.h>

#include "src/platform/processbarrier.h"

namespace NS_BUNDLEMGR1 {

class LightEventHandler;

/// The handlers that each event of one event manager goes to, one after the other, on the thread
/// that dispatches it.
///
///     HandlerCalls calls;
///     calls.Begin(eventId, [&](auto add) { add(handler); ... });
///     for (LightEventHandler* handler = calls.Current(); handler != nullptr; handler = calls.Next()) ...
///     calls.End();
///
/// The handlers are remembered for later events, until some table of handlers changes: `TablesChanged`
/// is called after each change, before those that it concerns are told.
///
/// All of these objects in the process are in one list, so that a handler can be taken away from
/// each: from those that have still to reach it at once, from those that are calling it when it
/// returns. Calls take no lock for that. The thread first says whom it is about to call, then
/// looks whether the handler is still there; who takes a handler away does it the other way
/// round, so that one of the two sees the other.
///
/// Thread safety: an object is for one thread. `Withdraw` and `TablesChanged` may be called by any.
class HandlerCalls {
public:
    HandlerCalls();
    ~HandlerCalls();
    HandlerCalls(const HandlerCalls&) = delete;
    HandlerCalls& operator=(const HandlerCalls&) = delete;

    /// Once an event, at its beginning.
    /// @param forEach is given what to call with each handler of the event, if they are not
    ///                remembered; null is passed over. Without memory for all of them, none is
    ///                called
    template <class ForEach>
    void Begin(int eventId, ForEach forEach);

    /// @return the handler that is being called; null when there is none left
    LightEventHandler* Current() const { return m_current.load(std::memory_order_relaxed); }

    /// Ends that call, unless there is none left: the last one counts as called until `End`.
    /// @return the next one's handler, or null
    LightEventHandler* Next() { return Advance() ? Current() : nullptr; }

    /// Ends the call that is under way, if any, and the event.
    void End();

    /// Nobody's handlers are as they were.
    static void TablesChanged() { s_version.fetch_add(1); }

    /// Cancels the calls of `handler` that have not begun, and waits for those that have, on other
    /// threads. Called by `handler` itself, it does not wait for a thread in it that has called
    /// this, too.
    static void Withdraw(const LightEventHandler* handler);

    /// @name Around fork
    /// The calls of other threads are not in the child.
    /// @{
    static void BeforeFork();
    static void AfterForkInParent();
    static void AfterForkInChild();
    /// @}

private:
    // More than an event has as a rule. Beyond that it takes memory.
    static constexpr std::size_t kFew = 8;
    // Events whose numbers differ in their last bits do not push each other out.
    static constexpr std::size_t kLists = 8;

    // A handler, or null when it has been withdrawn.
    class Slot {
    public:
        Slot() = default;  // not made, and not looked at
        explicit Slot(LightEventHandler* handler) : m_handler(handler) {}
        Slot(const Slot& other) : m_handler(other.Get()) {}
        Slot& operator=(const Slot&) = delete;

        LightEventHandler* Get() const { return m_handler.load(); }
        void Withdraw() { m_handler.store(nullptr); }
        // With the mutex, which those who withdraw it need.
        void Make(LightEventHandler* handler) { m_handler.store(handler, std::memory_order_relaxed); }

    private:
        std::atomic<LightEventHandler*> m_handler;
    };

    // Changed by its thread, under the mutex, but for handlers that are withdrawn. All of them are in `few`, of
    // which `count` are made, or else in `more`.
    struct List {  // NOLINT(cppcoreguidelines-pro-type-member-init)
        void Add(LightEventHandler* handler);
        void Clear();
        Slot* Begin() { return more.empty() ? few.data() : more.data(); }
        Slot* End() { return Begin() + count; }

        unsigned long version = 0;  // of the tables when it was made; 0: never
        int eventId = 0;
        std::size_t count = 0;
        std::array<Slot, kFew> few;
        std::vector<Slot> more;
    };

    void Rewind();
    bool Advance();
    bool IsCalling(const LightEventHandler* handler) const;
    void Link() ZO_REQUIRES(s_mutex);
    void Unlink() ZO_REQUIRES(s_mutex);
    bool IsOfThisThread() const;
    bool Forget(const LightEventHandler* handler) ZO_REQUIRES(s_mutex);
    static bool IsIn(const LightEventHandler* handler, bool isInside);

    static std::atomic<unsigned long> s_version;
    static detail::Mutex s_mutex;  // guards the list, and the lists of handlers in it
    static HandlerCalls* s_first ZO_GUARDED_BY(s_mutex);

    HandlerCalls* m_next = nullptr;
    HandlerCalls** m_link = nullptr;  // what points to this one
    const pthread_t m_thread = pthread_self();
    std::atomic<LightEventHandler*> m_upcoming{nullptr};  // becomes the current one, if it is still there
    std::atomic<LightEventHandler*> m_current{nullptr};
    std::atomic<bool> m_isLeaving{false};  // the current one has withdrawn itself
    std::array<List, kLists> m_lists;
    List* m_list = m_lists.data();  // those of the current event
    Slot* m_slot = nullptr;         // of the next one
    Slot* m_end = nullptr;          // behind the last one
};

template <class ForEach>
void HandlerCalls::Begin(int eventId, ForEach forEach) {
    m_list = &m_lists[static_cast<unsigned>(eventId) % kLists];
    if (m_list->version != 0 && m_list->eventId == eventId) {
        // In this order: who withdraws a handler from now on sees the call.
        Rewind();
        Advance();
        if (m_list->version == s_version.load()) return;
        End();
    }
    const detail::Guard guard(s_mutex);
    m_list->Clear();
    m_list->eventId = eventId;
    // In this order: a change that comes in between is seen by the next event.
    m_list->version = s_version.load();
    try {
        forEach([this](LightEventHandler* handler) { m_list->Add(handler); });
    } catch (const std::bad_alloc&) {
        m_list->Clear();
        m_list->version = 0;  // the next event tries again
    }
    Rewind();
    Advance();
}

inline void HandlerCalls::List::Add(LightEventHandler* handler) {
    if (count < kFew) {
        few[count].Make(handler);
    } else {
        if (more.empty()) {
            more.reserve(4 * kFew);  // seldom taken twice
            for (const Slot& slot : few) more.emplace_back(slot);
        }
        more.emplace_back(handler);
    }
    ++count;
}

inline void HandlerCalls::List::Clear() {
    count = 0;
    more.clear();
}

inline void HandlerCalls::Rewind() {
    m_slot = m_list->Begin();
    m_end = m_list->End();
}

inline void HandlerCalls::End() {
    m_current.store(nullptr, std::memory_order_release);
    m_upcoming.store(nullptr, std::memory_order_release);
}

// To the next handler that is there. False: the current one stays.
inline bool HandlerCalls::Advance() {
    while (m_slot != m_end) {
        const Slot& slot = *m_slot++;
        LightEventHandler* const handler = slot.Get();
        if (handler == nullptr) continue;
        if (m_isLeaving.load(std::memory_order_relaxed)) m_isLeaving.store(false);
        ProcessBarrier::Publish(m_upcoming, handler);
        if (slot.Get() != handler) continue;
        m_current.store(handler, std::memory_order_release);
        return true;
    }
    m_upcoming.store(nullptr, std::memory_order_release);
    return false;
}

}  // namespace NS_BUNDLEMGR1
