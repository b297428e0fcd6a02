// Who is being called, and who is about to be.
#pragma once

#include <pthread.h>

#include <array>
#include <cstddef>
#include <new>
#include <vector>

#include <bundlemgr/detail/mutex.h>

namespace NS_BUNDLEMGR1 {

class LightEventHandler;

/// The handlers that one event goes to, one after the other, on the thread that dispatches it.
///
///     HandlerCalls calls;
///     calls.Begin([&](auto add) { add(handler); ... });
///     for (LightEventHandler* handler = calls.Current(); handler != nullptr; handler = calls.Next()) ...
///
/// All of them in the process are in one list, so that a handler can be taken away from each:
/// from those that have still to reach it at once, from those that are calling it when it
/// returns.
///
/// Thread safety: an object is for one thread. `Withdraw` may be called by any.
class HandlerCalls {
public:
    HandlerCalls() = default;
    /// Ends the call that is under way.
    ~HandlerCalls() { End(); }
    HandlerCalls(const HandlerCalls&) = delete;
    HandlerCalls& operator=(const HandlerCalls&) = delete;

    /// Once, at the beginning. No handler can be withdrawn meanwhile.
    /// @param forEach is given what to call with each handler; null is passed over. Without
    ///                memory for all of them, none is called
    template <class ForEach>
    void Begin(ForEach forEach);

    /// @return the handler that is being called; null when there is none left
    LightEventHandler* Current() const { return m_current; }

    /// Ends that call. @return the next one's handler, or null
    LightEventHandler* Next();

    /// @return whether there is a next one
    bool HasNext();

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

    void Add(LightEventHandler* handler);
    void Clear();
    LightEventHandler** At(std::size_t index);
    bool Advance() ZO_REQUIRES(s_mutex);
    void Link() ZO_REQUIRES(s_mutex);
    void Unlink() ZO_REQUIRES(s_mutex);
    void End();
    bool IsOfThisThread() const;
    bool Forget(const LightEventHandler* handler) ZO_REQUIRES(s_mutex);
    static bool IsIn(const LightEventHandler* handler, bool isInside);

    static detail::Mutex s_mutex;  // guards what follows, of all that are in the list
    static HandlerCalls* s_first ZO_GUARDED_BY(s_mutex);

    HandlerCalls* m_next = nullptr;
    HandlerCalls** m_link = nullptr;  // what points to this one
    pthread_t m_thread{};
    LightEventHandler* m_current = nullptr;  // null: not in the list
    bool m_isLeaving = false;                // the current one has withdrawn itself
    std::size_t m_index = 0;                 // of the next one
    std::size_t m_count = 0;
    std::array<LightEventHandler*, kFew> m_few{};
    std::vector<LightEventHandler*> m_more;
};

template <class ForEach>
void HandlerCalls::Begin(ForEach forEach) {
    const detail::Guard guard(s_mutex);
    try {
        forEach([this](LightEventHandler* handler) { Add(handler); });
    } catch (const std::bad_alloc&) {
        Clear();
    }
    if (Advance()) Link();
}

}  // namespace NS_BUNDLEMGR1
