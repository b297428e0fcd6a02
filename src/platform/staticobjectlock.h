// ACE's lock of static objects: what is made once under it, and the lock in a child of fork.
#pragma once

#include <atomic>

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>

namespace NS_BUNDLEMGR1 {

/// @param instance points to the one object of its kind; set to a new one where it is null
/// @param make     makes that, under ACE's static-object lock
/// @return the object; what is there, perhaps null, where the lock cannot be taken
template <class Object, class Make>
Object* InstanceOrMake(std::atomic<Object*>& instance, Make make) {
    Object* const present = instance.load(std::memory_order_acquire);
    if (present != nullptr) return present;
    ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, *ACE_Static_Object_Lock::instance(), instance.load());
    if (instance.load() == nullptr) instance.store(make(), std::memory_order_release);
    return instance.load();
}

/// Frees ACE's static-object lock in a child of `fork`: the thread that held it may not exist
/// there, and the lock does not know the thread that forked as its owner any more. It is not
/// taken before the fork, since its holder may be waiting for the thread that forks.
void FreeStaticObjectLockInChild();

}  // namespace NS_BUNDLEMGR1
