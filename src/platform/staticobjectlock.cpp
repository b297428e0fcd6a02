#include "src/platform/staticobjectlock.h"

#include <ace/OS_NS_Thread.h>

namespace NS_BUNDLEMGR1 {

void FreeStaticObjectLockInChild() {
    ACE_Recursive_Thread_Mutex& lock = *ACE_Static_Object_Lock::instance();
    if (lock.tryacquire() == 0) {
        lock.release();
    } else {
        ACE_OS::recursive_mutex_init(&lock.lock());
    }
}

}  // namespace NS_BUNDLEMGR1
