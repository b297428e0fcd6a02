// The process's file mode creation mask, changed for a moment.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <mutex>

namespace NS_BUNDLEMGR1 {

/// Sets the process's umask and restores the former one at the end of its life.
///
///     {
///         ScopedUmask mask(0037);
///         stream = fopen(path, "w");  // created with mode 0640
///     }
///
/// The mask belongs to the process, not to the thread: of two threads that each set
/// and restore it, the second could take the first one's mask for the original and
/// leave it behind for good. So one thread at a time has a ScopedUmask; it may have
/// several, one inside the other. Take no lock during its life.
class ScopedUmask {
public:
    explicit ScopedUmask(mode_t mask);
    ~ScopedUmask();
    ScopedUmask(const ScopedUmask&) = delete;
    ScopedUmask& operator=(const ScopedUmask&) = delete;

private:
    // In this order: the mask is changed and restored under the lock.
    const std::lock_guard<std::recursive_mutex> m_lock;
    const mode_t m_oldMask;
};

}  // namespace NS_BUNDLEMGR1
