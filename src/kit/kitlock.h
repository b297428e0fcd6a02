// What the kit's objects share, in spite of forks.
#pragma once

#include <mutex>

namespace NS_BUNDLEMGR1 {

/// One lock for the pointers in all objects of the kit, which a fork can take: in a child it is
/// free. It is held for a moment only; no other lock is taken, no user code called meanwhile.
class KitLock {
public:
    KitLock() : m_guard(Mutex()) {}

    /// @return how many forks lie between this process and the first one
    static unsigned long Forks();

private:
    static std::mutex& Mutex();

    const std::lock_guard<std::mutex> m_guard;
};

}  // namespace NS_BUNDLEMGR1
