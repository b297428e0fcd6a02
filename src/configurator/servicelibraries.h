// The libraries that services came from.
#pragma once

#include <string>

namespace NS_BUNDLEMGR1 {

/// The configurator never closes the library of a service: where it asks the library when to
/// close it, libACE's own answer comes first, which is "lazily". A bundle whose services are in
/// its own library could then never be loaded again.
/// Thread-safe.
namespace ServiceLibraries {

/// A service is about to be loaded from a library.
/// @param library its name, without ".so"
void Note(const std::string& library);

/// Has the configurator close the noted libraries that no service is left of.
void CloseUnused();

}  // namespace ServiceLibraries
}  // namespace NS_BUNDLEMGR1
