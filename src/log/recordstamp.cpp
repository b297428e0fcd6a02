#include "log/recordstamp.h"

#include <cstdint>

#include <pthread.h>
#include <sys/time.h>

namespace NS_BUNDLEMGR1 {

ACE_Time_Value RecordTime() {
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) return ACE_Time_Value(-1, 0);
    return ACE_Time_Value(now);
}

std::string RecordThread() {
    const auto id = static_cast<std::uint32_t>(pthread_self());
    return "Thread " + std::to_string(static_cast<std::int32_t>(id));
}

}  // namespace NS_BUNDLEMGR1
