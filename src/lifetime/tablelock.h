// The lock of the bundle manager's table.
#pragma once

#include "src/lifetime/nestedlock.h"

namespace NS_BUNDLEMGR1 {

/// Held while bundles are loaded, initialised, finalised and waited for, and whenever
/// somebody asks for one.
namespace TableLock {

/// Outlives the manager, since `BundleMgr::Destroy` holds it until the manager is gone.
ACE_Recursive_Thread_Mutex& Mutex();

class Guard : public NestedGuard {
public:
    Guard() : NestedGuard(Mutex(), LockRank::kTable) {}
};

}  // namespace TableLock

}  // namespace NS_BUNDLEMGR1
