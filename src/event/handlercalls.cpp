#include "src/event/handlercalls.h"

#include "src/platform/processbarrier.h"
#include "src/platform/waituntil.h"

namespace NS_BUNDLEMGR1 {

std::atomic<unsigned long> HandlerCalls::s_version{1};
detail::Mutex HandlerCalls::s_mutex;
HandlerCalls* HandlerCalls::s_first = nullptr;

HandlerCalls::HandlerCalls() {
    const detail::Guard guard(s_mutex);
    Link();
}

HandlerCalls::~HandlerCalls() {
    const detail::Guard guard(s_mutex);
    Unlink();
}

void HandlerCalls::Withdraw(const LightEventHandler* handler) {
    bool isInside = false;
    {
        const detail::Guard guard(s_mutex);
        TablesChanged();  // for the next event it is as its table says
        for (HandlerCalls* calls = s_first; calls != nullptr; calls = calls->m_next) {
            if (calls->Forget(handler)) isInside = true;
        }
    }
    if (handler == nullptr) return;  // never called
    ProcessBarrier::Cross();
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

void HandlerCalls::Link() {
    m_next = s_first;
    m_link = &s_first;
    if (m_next != nullptr) m_next->m_link = &m_next;
    s_first = this;
}

void HandlerCalls::Unlink() {
    *m_link = m_next;
    if (m_next != nullptr) m_next->m_link = m_link;
}

bool HandlerCalls::IsOfThisThread() const {
    return pthread_equal(m_thread, pthread_self()) != 0;
}

// Whether the calling thread is in that handler, for this event.
bool HandlerCalls::Forget(const LightEventHandler* handler) {
    for (List& list : m_lists) {
        for (Slot* slot = list.Begin(); slot != list.End(); ++slot) {
            if (slot->Get() == handler) slot->Withdraw();
        }
    }
    const bool isInside = m_current.load() == handler && IsOfThisThread();
    if (isInside) m_isLeaving.store(true);
    return isInside;
}

// Looked at in this order: a handler is upcoming before it is the current one.
bool HandlerCalls::IsCalling(const LightEventHandler* handler) const {
    return m_upcoming.load() == handler || m_current.load() == handler;
}

// Of two who are both in the handler, neither waits for the other.
bool HandlerCalls::IsIn(const LightEventHandler* handler, bool isInside) {
    const detail::Guard guard(s_mutex);
    for (const HandlerCalls* calls = s_first; calls != nullptr; calls = calls->m_next) {
        if (!calls->IsCalling(handler) || calls->IsOfThisThread()) continue;
        if (!isInside || !calls->m_isLeaving.load()) return true;
    }
    return false;
}

}  // namespace NS_BUNDLEMGR1
