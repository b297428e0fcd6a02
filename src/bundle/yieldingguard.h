// Two locks at once, where others take them in either order.
#pragma once

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>

namespace NS_BUNDLEMGR1 {

/// Holds a lock that a thread must not wait for while it holds another one.
class YieldingGuard {
public:
    /// @param lock acquired, and held for the life of this object
    /// @param held what the thread holds, a lock or what can be released and acquired
    ///             like one; released while another thread holds `lock`
    template <class Held>
    YieldingGuard(ACE_Recursive_Thread_Mutex& lock, Held&& held) : m_guard(lock, false) {
        while (!m_guard.locked()) {
            held.release();
            lock.acquire();
            lock.release();
            held.acquire();
            m_guard.tryacquire();
        }
    }

private:
    ACE_Guard<ACE_Recursive_Thread_Mutex> m_guard;
};

}  // namespace NS_BUNDLEMGR1
