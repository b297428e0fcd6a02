#include "src/platform/wallclock.h"

#include <sys/time.h>

namespace NS_BUNDLEMGR1 {

ACE_Time_Value WallClock() {
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) return ACE_Time_Value(-1, 0);
    constexpr long kMicroseconds = 1000000;  // in a second
    // One after the other: if they were loaded at once, that would wait for the stores of both.
    const volatile timeval& written = now;
    const time_t seconds = written.tv_sec;
    const suseconds_t microseconds = written.tv_usec;
    const bool isNormal = seconds >= 0 && microseconds >= 0 && microseconds < kMicroseconds;
    if (!isNormal) return ACE_Time_Value(now);
    ACE_Time_Value time;  // the constructor from a timeval would see to what is so already
    time.sec(seconds);
    time.usec(microseconds);
    return time;
}

}  // namespace NS_BUNDLEMGR1
