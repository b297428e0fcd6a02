#include "src/platform/wallclock.h"

#include <sys/time.h>

namespace NS_BUNDLEMGR1 {

ACE_Time_Value WallClock() {
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) return ACE_Time_Value(-1, 0);
    return ACE_Time_Value(now);
}

}  // namespace NS_BUNDLEMGR1
