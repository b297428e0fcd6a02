// The one call into the platform's closed library libkorusdk_wrap.
#pragma once

#include <string>

namespace ns_korusdk_wrap {

/// Fills `out` with the path of the platform's server installation, or leaves it
/// empty where there is none. The library passes "" for the other two arguments.
///
/// A build without libkorusdk_wrap has a stand-in that takes the path from the
/// environment variable KORU_SERVER_PATH, as it is at the time of the call.
void VexGetServerPath(std::string& out, const std::string& first, const std::string& second);

}  // namespace ns_korusdk_wrap
