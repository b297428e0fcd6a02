// A lock that a thread must not wait for while it holds others.
#pragma once

#include <ace/Guard_T.h>

namespace NS_BUNDLEMGR1 {

/// Holds a lock for its life, and lets go of others while it has to wait for it. That is for
/// locks whose holders wait for those others. Waits for the one or the others, and holds
/// nothing meanwhile.
/// @tparam Lock of ACE's kinds
template <class Lock>
class YieldingGuard {
public:
    /// @param lock acquired
    /// @param held what the thread holds: a lock, or what can be released and acquired like
    ///             one; let go of while another thread has `lock`
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
