// The C library's local time, in a process that may fork.
#pragma once

#include <cstddef>
#include <ctime>

namespace NS_BUNDLEMGR1 {

/// The C library keeps the time zone under a lock that it does not set free in a forked child:
/// had another thread held it, the child would wait for it in its first log record. So the
/// library asks for local times here only, and nobody is inside while the process forks.
///
/// Thread-safe. Other code that asks the C library itself is not covered.
namespace Calendar {

/// @return as `localtime_r`
const std::tm* LocalTime(std::time_t seconds, std::tm& local);

/// @return as `strftime`
std::size_t Format(char* text, std::size_t size, const char* format, const std::tm& local);

/// @name For those who handle forks
/// @{
void BeforeFork();
void AfterFork();
/// @}

}  // namespace Calendar
}  // namespace NS_BUNDLEMGR1
