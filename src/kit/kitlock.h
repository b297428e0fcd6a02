// One lock for the kit that a forked child finds free.
#pragma once

#include <bundlemgr/detail/mutex.h>

namespace NS_BUNDLEMGR1 {

/// One lock for the pointers in all objects of the kit, which a fork can take: in a child it is
/// free. It is held for a moment only; no other lock is taken, no user code called meanwhile.
class ZO_SCOPED_LOCKABLE KitLock {
public:
    KitLock() ZO_ACQUIRE(Mutex()) : m_guard(Mutex()) {}
    ~KitLock() ZO_RELEASE() = default;
    KitLock(const KitLock&) = delete;
    KitLock& operator=(const KitLock&) = delete;

    static detail::Mutex& Mutex();

    /// @return how many forks lie between this process and the first one
    static unsigned long Forks();

private:
    const detail::Guard<detail::Mutex> m_guard;
};

}  // namespace NS_BUNDLEMGR1
