// What one process measures: see lifecycle_bench.cpp.
#pragma once

#include <map>
#include <string>

namespace lifecycle {

/// What was measured, by name.
using Figures = std::map<std::string, double>;

/// From nothing to all services ready, and back. A process can do that once.
/// @param kind  "own": services in the libraries of their bundles; "far": in others; "bare-own",
///              "bare-far": the same libraries without the manager: dlopen, and a directive for
///              each service; "raw": so, with services that are plain ACE ones; "poco": as many
///              objects by Poco's class loader
/// @param count number of bundles
/// @return "start" and "stop" in milliseconds, without the pauses that are part of a stop
Figures StartAndStop(const std::string& kind, int count);

/// One service that is removed and loaded again and again.
/// @param kind  "own" or "raw"
/// @param count number of reloads
/// @return "total" in milliseconds; "cycle", which the last ones took, in microseconds; "memory",
///         by which the process grew, in bytes a reload
Figures Reload(const std::string& kind, int count);

/// The first search of an interface.
/// @param kind  "own": by a proxy; "raw": in a map
/// @param count number of services of the bundle
/// @return "search" in microseconds
Figures FirstSearch(const std::string& kind, int count);

}  // namespace lifecycle
