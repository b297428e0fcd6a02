#include "src/platform/wallclock.h"

#include <sys/time.h>

namespace NS_BUNDLEMGR1 {

ACE_Time_Value WallClock() {
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) return ACE_Time_Value(-1, 0);
    constexpr long kMicroseconds = 1000000;  // in a second
    const bool isNormal = now.tv_sec >= 0 && now.tv_usec >= 0 && now.tv_usec < kMicroseconds;
    if (!isNormal) return ACE_Time_Value(now);
    ACE_Time_Value time;  // the constructor from a timeval would see to what is so already
    time.sec(now.tv_sec);
    time.usec(now.tv_usec);
    return time;
}

}  // namespace NS_BUNDLEMGR1
