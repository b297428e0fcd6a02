// What does this thread hold, and how does it let go of all of it while it waits?
#pragma once

#include <ace/Recursive_Thread_Mutex.h>

namespace NS_BUNDLEMGR1 {

/// What a lock guards.
enum class LockRank { kTable, kBundle };

/// Holds the lock of the table or of a bundle for its life.
///
/// The library calls user code under these locks, and user code takes more of them in any
/// order, so no fixed order can keep two threads from waiting for each other. Instead, a thread
/// that has to wait for one of these locks, or for that of a `YieldingGuard`, first lets go of
/// all that it holds by such guards, and takes them back together with what it waited for.
///
/// So after taking a lock, look again at what the locks guard that you held before: other
/// threads may have had them in between.
class NestedGuard {
public:
    NestedGuard(ACE_Recursive_Thread_Mutex& lock, LockRank rank);
    ~NestedGuard();
    NestedGuard(const NestedGuard&) = delete;
    NestedGuard& operator=(const NestedGuard&) = delete;

    /// @return whether the calling thread holds a lock of that rank by a guard
    static bool Holds(LockRank rank);

private:
    friend class HeldLocks;

    ACE_Recursive_Thread_Mutex& m_lock;
    const LockRank m_rank;
    const NestedGuard* const m_pOuter;  // the one that this thread took before
};

/// All that the calling thread holds by guards, which may be nothing.
class HeldLocks {
public:
    /// Lets other threads have the locks.
    void release();

    /// Takes back what was released.
    void acquire();

    /// Takes back what was released unless another thread has some of it. @return 0, or -1
    int tryacquire();

private:
    friend class NestedGuard;

    const NestedGuard* TryAllBut(const NestedGuard* taken) const;
    void Restore();

    const NestedGuard* m_pReleased = nullptr;  // the innermost
};

/// Lets go of the locks of the calling thread for its life.
class LockPause {
public:
    LockPause() { m_held.release(); }
    ~LockPause() { m_held.acquire(); }
    LockPause(const LockPause&) = delete;
    LockPause& operator=(const LockPause&) = delete;

private:
    HeldLocks m_held;
};

}  // namespace NS_BUNDLEMGR1
