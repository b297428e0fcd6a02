#include "descriptors.h"

#include <limits>

#include <dirent.h>
#include <sys/resource.h>

namespace alarms {

namespace {

// Not among the entries to count: "." and "..", and the descriptor by which they are read.
constexpr std::size_t kOthers = 3;

}  // namespace

std::size_t DescriptorLimit() noexcept {
    rlimit limit{};
    const bool known = getrlimit(RLIMIT_NOFILE, &limit) == 0;
    return known ? limit.rlim_cur : std::numeric_limits<std::size_t>::max();
}

std::size_t OpenDescriptors() noexcept {
    DIR* const handles = opendir("/proc/self/fd");
    if (handles == nullptr) return 0;
    std::size_t entries = 0;
    while (readdir(handles) != nullptr) ++entries;
    closedir(handles);
    return entries > kOthers ? entries - kOthers : 0;
}

}  // namespace alarms
