// ACE's lock of static objects, in a child of fork.
#pragma once

namespace NS_BUNDLEMGR1 {

/// Sets ACE's static-object lock free in a child of `fork`, where the thread that held it may
/// not exist, and the one that forked is no longer taken for its owner. It is not taken before
/// the fork: it may be held by one who waits for the thread that forks.
void FreeStaticObjectLockInChild();

}  // namespace NS_BUNDLEMGR1
