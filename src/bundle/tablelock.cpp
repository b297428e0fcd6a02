#include "bundle/tablelock.h"

namespace NS_BUNDLEMGR1 {
namespace TableLock {

namespace {

thread_local unsigned t_depth = 0;

}  // namespace

ACE_Recursive_Thread_Mutex& Mutex() {
    static ACE_Recursive_Thread_Mutex* const mutex = new ACE_Recursive_Thread_Mutex;
    return *mutex;
}

Guard::Guard() : NestedGuard(Mutex(), t_depth) {}

NestedHold Hold() {
    return NestedHold(Mutex(), t_depth);
}

}  // namespace TableLock
}  // namespace NS_BUNDLEMGR1
