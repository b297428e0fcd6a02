#include "src/lifetime/tablelock.h"

namespace NS_BUNDLEMGR1 {

ACE_Recursive_Thread_Mutex& TableLock::Mutex() {
    static ACE_Recursive_Thread_Mutex* const mutex = new ACE_Recursive_Thread_Mutex;
    return *mutex;
}

}  // namespace NS_BUNDLEMGR1
