// The libraries that services came from.
#pragma once

#include <string>

namespace NS_BUNDLEMGR1 {

/// The configurator keeps the library of a service open for good: it asks the library for
/// a function that tells how to proceed, and finds that of libACE, which says "lazily". A
/// bundle whose services are in its own library could then never be loaded again.
/// Thread-safe.
namespace ServiceLibraries {

/// A service is about to be loaded from a library.
/// @param library its name, without ".so"
void Note(const std::string& library);

/// Has the configurator close the noted libraries that no service is left of.
void CloseUnused();

}  // namespace ServiceLibraries
}  // namespace NS_BUNDLEMGR1
