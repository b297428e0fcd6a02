// The file descriptors of the process.
#pragma once

#include <cstddef>

#include <bundlemgr/export.h>

namespace alarms {

/// What the agent opens besides its clients' connections: files, reactors, connections of
/// its own.
constexpr std::size_t OWN_DESCRIPTORS = 32;

/// @return how many the process may have; the highest number there is where nothing limits them
ZO_PLUGIN_EXPORT std::size_t DescriptorLimit() noexcept;

/// @return how many are open; 0 where the system does not tell
ZO_PLUGIN_EXPORT std::size_t OpenDescriptors() noexcept;

}  // namespace alarms
