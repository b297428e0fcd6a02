#include "src/platform/calendar.h"

#include <mutex>

namespace NS_BUNDLEMGR1 {
namespace Calendar {

namespace {

std::mutex g_mutex;

}  // namespace

const std::tm* LocalTime(std::time_t seconds, std::tm& local) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    return localtime_r(&seconds, &local);
}

// Asks for the zone as well, for "%Z".
std::size_t Format(char* text, std::size_t size, const char* format, const std::tm& local) {
    const std::lock_guard<std::mutex> guard(g_mutex);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    return std::strftime(text, size, format, &local);
#pragma GCC diagnostic pop
}

void BeforeFork() {
    g_mutex.lock();
}

void AfterFork() {
    g_mutex.unlock();
}

}  // namespace Calendar
}  // namespace NS_BUNDLEMGR1
