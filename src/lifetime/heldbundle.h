// The lock of a bundle.
#pragma once

#include "src/lifetime/nestedlock.h"

namespace NS_BUNDLEMGR1 {

/// Held while a bundle's services are entered, asked and ended.
///
/// Whoever holds the manager's table runs user code meanwhile, which may wait for this thread.
/// So a thread that holds a bundle, since it ends a service, say, looks bundles up in
/// `LiveBundles` instead.
class HeldBundle : public NestedGuard {
public:
    explicit HeldBundle(ACE_Recursive_Thread_Mutex& lock) : NestedGuard(lock, LockRank::kBundle) {}

    /// @return whether the calling thread holds any
    static bool Any() { return Holds(LockRank::kBundle); }
};

}  // namespace NS_BUNDLEMGR1
