#include "src/platform/filesizelimit.h"

#include <atomic>
#include <cstdint>
#include <ctime>

#include <sys/resource.h>

namespace NS_BUNDLEMGR1 {

namespace {

// Twice the second of the latest look, and 1 more where there was a limit.
std::atomic<std::int64_t> g_seen{-1};

std::int64_t ThisSecond() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec;
}

bool LookAt(std::int64_t second) {
    rlimit limit{};
    const bool isSet = getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
    g_seen.store(2 * second + (isSet ? 1 : 0), std::memory_order_relaxed);
    return isSet;
}

}  // namespace

bool FileSizeLimit::IsSet() {
    const std::int64_t second = ThisSecond();
    const std::int64_t seen = g_seen.load(std::memory_order_relaxed);
    return seen >> 1 == second ? (seen & 1) != 0 : LookAt(second);
}

bool FileSizeLimit::LookAgain() {
    return LookAt(ThisSecond());
}

}  // namespace NS_BUNDLEMGR1
