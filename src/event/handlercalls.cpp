#include "src/event/handlercalls.h"

#include "src/platform/waituntil.h"

namespace NS_BUNDLEMGR1 {

detail::Mutex HandlerCalls::s_mutex;
HandlerCalls* HandlerCalls::s_first = nullptr;

LightEventHandler* HandlerCalls::Next() {
    if (m_current == nullptr) return nullptr;
    const detail::Guard guard(s_mutex);
    if (!Advance()) Unlink();
    return m_current;
}

bool HandlerCalls::HasNext() {
    if (m_index >= m_count) return false;  // these two are this thread's own
    const detail::Guard guard(s_mutex);
    for (std::size_t i = m_index; i < m_count; ++i) {
        if (*At(i) != nullptr) return true;
    }
    return false;
}

void HandlerCalls::End() {
    if (m_current == nullptr) return;
    const detail::Guard guard(s_mutex);
    Unlink();
}

void HandlerCalls::Withdraw(const LightEventHandler* handler) {
    bool isInside = false;
    {
        const detail::Guard guard(s_mutex);
        for (HandlerCalls* calls = s_first; calls != nullptr; calls = calls->m_next) {
            if (calls->Forget(handler)) isInside = true;
        }
    }
    WaitUntil([handler, isInside] { return !IsIn(handler, isInside); });
}

// The mutex stays held until one of the two functions below.
void HandlerCalls::BeforeFork() ZO_NO_THREAD_SAFETY_ANALYSIS {
    s_mutex.acquire();
}

void HandlerCalls::AfterForkInParent() ZO_NO_THREAD_SAFETY_ANALYSIS {
    s_mutex.release();
}

void HandlerCalls::AfterForkInChild() ZO_NO_THREAD_SAFETY_ANALYSIS {
    for (HandlerCalls* calls = s_first; calls != nullptr;) {
        HandlerCalls* const next = calls->m_next;
        if (!calls->IsOfThisThread()) calls->Unlink();
        calls = next;
    }
    s_mutex.release();
}

// For all that follow, the mutex must be held.

void HandlerCalls::Add(LightEventHandler* handler) {
    if (m_count >= kFew) {
        m_more.push_back(handler);
    } else {
        m_few[m_count] = handler;
    }
    ++m_count;
}

void HandlerCalls::Clear() {
    m_count = 0;
    m_more.clear();
}

LightEventHandler** HandlerCalls::At(std::size_t index) {
    return index < kFew ? &m_few[index] : &m_more[index - kFew];
}

// To the next handler that is there; false: there is none.
bool HandlerCalls::Advance() {
    m_isLeaving = false;
    m_current = nullptr;
    while (m_current == nullptr && m_index < m_count) m_current = *At(m_index++);
    return m_current != nullptr;
}

void HandlerCalls::Link() {
    m_thread = pthread_self();
    m_next = s_first;
    m_link = &s_first;
    if (m_next != nullptr) m_next->m_link = &m_next;
    s_first = this;
}

void HandlerCalls::Unlink() {
    *m_link = m_next;
    if (m_next != nullptr) m_next->m_link = m_link;
    m_current = nullptr;
}

bool HandlerCalls::IsOfThisThread() const {
    return pthread_equal(m_thread, pthread_self()) != 0;
}

// Whether the calling thread is in that handler, for this event.
bool HandlerCalls::Forget(const LightEventHandler* handler) {
    for (std::size_t i = m_index; i < m_count; ++i) {
        if (*At(i) == handler) *At(i) = nullptr;
    }
    const bool isInside = m_current == handler && IsOfThisThread();
    if (isInside) m_isLeaving = true;
    return isInside;
}

// Of two who are both in the handler, neither waits for the other.
bool HandlerCalls::IsIn(const LightEventHandler* handler, bool isInside) {
    const detail::Guard guard(s_mutex);
    for (const HandlerCalls* calls = s_first; calls != nullptr; calls = calls->m_next) {
        if (calls->m_current != handler || calls->IsOfThisThread()) continue;
        if (!isInside || !calls->m_isLeaving) return true;
    }
    return false;
}

}  // namespace NS_BUNDLEMGR1
