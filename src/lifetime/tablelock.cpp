#include "src/lifetime/tablelock.h"

namespace NS_BUNDLEMGR1 {

detail::RecursiveThreadMutex& TableLock::Mutex() {
    static auto* const mutex = new detail::RecursiveThreadMutex;
    return *mutex;
}

}  // namespace NS_BUNDLEMGR1
