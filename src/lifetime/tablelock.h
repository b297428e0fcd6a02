// Does this thread hold the manager's table?
#pragma once

#include <bundlemgr/detail/mutex.h>

#include "src/lifetime/nestedlock.h"

namespace NS_BUNDLEMGR1 {

/// Held while bundles are loaded, initialised, finalised and waited for, and whenever
/// somebody asks for one.
namespace TableLock {

/// Outlives the manager, since `BundleMgr::Destroy` holds it until the manager is gone.
detail::RecursiveThreadMutex& Mutex();

class ZO_SCOPED_LOCKABLE Guard : public NestedGuard {
public:
    Guard() ZO_ACQUIRE(Mutex()) : NestedGuard(Mutex(), LockRank::kTable) {}
    ~Guard() ZO_RELEASE() = default;
};

}  // namespace TableLock

}  // namespace NS_BUNDLEMGR1
