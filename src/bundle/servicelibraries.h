// The libraries that services came from.
#pragma once

#include <string>

namespace NS_BUNDLEMGR1 {

/// The configurator keeps the library of a service open for good: it asks the library for
/// a function that tells how to proceed, and finds that of libACE, which says "lazily". A
/// bundle whose services are in its own library could then never be loaded again.
/// Thread-safe.
namespace ServiceLibraries {

/// @param directive that of a service, which is about to be processed
void Note(const std::string& directive);

/// Has the configurator close the noted libraries that no service is left of.
void CloseUnused();

}  // namespace ServiceLibraries
}  // namespace NS_BUNDLEMGR1
