// Does this thread hold a bundle?
#pragma once

#include "src/lifetime/nestedlock.h"

namespace NS_BUNDLEMGR1 {

/// Holds a bundle's lock, which is held while its services are registered, called and ended.
///
/// A thread that holds a bundle must not wait for the manager's table: the thread that holds the
/// table runs user code, which may be waiting for this one. It looks bundles up in
/// `LiveBundles` instead.
class HeldBundle : public NestedGuard {
public:
    explicit HeldBundle(ACE_Recursive_Thread_Mutex& lock) : NestedGuard(lock, LockRank::kBundle) {}

    /// @return whether the calling thread holds any bundle
    static bool Any() { return Holds(LockRank::kBundle); }
};

}  // namespace NS_BUNDLEMGR1
