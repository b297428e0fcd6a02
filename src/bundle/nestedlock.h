// Recursive locks whose holder can let go of them for a while.
#pragma once

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>

namespace NS_BUNDLEMGR1 {

/// Holds a recursive lock for its life and keeps count of how often its thread has it,
/// which the lock itself does not tell.
class NestedGuard {
public:
    /// @param depth the count; nobody else may change it while the lock is held
    NestedGuard(ACE_Recursive_Thread_Mutex& lock, unsigned& depth) : m_guard(lock), m_depth(depth) {
        if (m_guard.locked()) ++m_depth;
    }
    ~NestedGuard() {
        if (m_guard.locked()) --m_depth;
    }
    NestedGuard(const NestedGuard&) = delete;
    NestedGuard& operator=(const NestedGuard&) = delete;

private:
    ACE_Guard<ACE_Recursive_Thread_Mutex> m_guard;
    unsigned& m_depth;
};

/// All that the `NestedGuard`s of a thread hold of a lock, which may be nothing.
class NestedHold {
public:
    NestedHold(ACE_Recursive_Thread_Mutex& lock, unsigned& depth) : m_lock(lock), m_depth(depth) {}

    /// Lets other threads have the lock.
    void release() {
        m_released = m_depth;
        m_depth = 0;  // theirs to count now
        for (unsigned i = 0; i < m_released; ++i) m_lock.release();
    }

    /// Takes back what was released.
    void acquire() {
        for (unsigned i = 0; i < m_released; ++i) m_lock.acquire();
        if (m_released > 0) m_depth = m_released;
    }

private:
    ACE_Recursive_Thread_Mutex& m_lock;
    unsigned& m_depth;
    unsigned m_released = 0;
};

}  // namespace NS_BUNDLEMGR1
