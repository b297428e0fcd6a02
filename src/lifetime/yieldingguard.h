// How does a thread wait for a lock whose holder may be waiting for this thread?
#pragma once

#include <ace/Guard_T.h>

namespace NS_BUNDLEMGR1 {

/// Holds a lock for its life. While it has to wait for that lock, the thread lets go of the
/// others that it holds, since the lock's holder may be waiting for them. It never waits
/// for one while it holds the other.
/// @tparam Lock of ACE's kinds
template <class Lock>
class YieldingGuard {
public:
    /// @param lock acquired
    /// @param held what the thread holds, and lets go of while another thread has `lock`: a
    ///             lock, or `HeldLocks`
    template <class Held>
    YieldingGuard(Lock& lock, Held&& held) : m_guard(lock, false) {
        while (!m_guard.locked()) {
            held.release();
            m_guard.acquire();
            if (held.tryacquire() == 0) return;
            m_guard.release();
            held.acquire();
            m_guard.tryacquire();
        }
    }

private:
    ACE_Guard<Lock> m_guard;
};

}  // namespace NS_BUNDLEMGR1
