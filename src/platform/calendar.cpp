#include "src/platform/calendar.h"

#include <bundlemgr/detail/mutex.h>

namespace NS_BUNDLEMGR1 {
namespace Calendar {

namespace {

detail::Mutex g_mutex;

}  // namespace

const std::tm* LocalTime(std::time_t seconds, std::tm& local) {
    const detail::Guard guard(g_mutex);
    return localtime_r(&seconds, &local);
}

// Asks for the zone as well, for "%Z".
std::size_t Format(char* text, std::size_t size, const char* format, const std::tm& local) {
    const detail::Guard guard(g_mutex);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    return std::strftime(text, size, format, &local);
#pragma GCC diagnostic pop
}

void BeforeFork() ZO_ACQUIRE(g_mutex) {
    g_mutex.acquire();
}

void AfterFork() ZO_RELEASE(g_mutex) {
    g_mutex.release();
}

}  // namespace Calendar
}  // namespace NS_BUNDLEMGR1
