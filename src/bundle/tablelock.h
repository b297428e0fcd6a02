// The lock of the bundle manager's table.
#pragma once

#include <ace/Recursive_Thread_Mutex.h>

#include "bundle/nestedlock.h"

namespace NS_BUNDLEMGR1 {

/// Held while bundles are loaded, initialised, finalised and waited for, and whenever
/// somebody asks for one.
///
/// A bundle that is initialised or finalised waits for ACE's configurator, and a service
/// that the configurator is bringing up on another thread asks for bundles. So a thread
/// that waits for the configurator lets go of this lock meanwhile.
namespace TableLock {

/// Outlives the manager, since `BundleMgr::Destroy` holds it until the manager is gone.
ACE_Recursive_Thread_Mutex& Mutex();

class Guard : public NestedGuard {
public:
    Guard();
};

/// @return what the calling thread holds of it by guards
NestedHold Hold();

}  // namespace TableLock

}  // namespace NS_BUNDLEMGR1
