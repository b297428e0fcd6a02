// Which bundles are still there.
#pragma once

#include <string>

namespace NS_BUNDLEMGR1 {

class BundleObject;

/// Every bundle of the process, from its construction to its destructor.
///
/// Bundles belong to their libraries and go with them; where a host ends without having
/// stopped, that is before the manager, and before the last thread that asks for them.
/// The next bundle may lie at the same address; the number that each of them gets here
/// tells them apart. Thread-safe, and never waits for the manager.
namespace LiveBundles {

void Enter(const BundleObject* bundle);

void Leave(const BundleObject* bundle);

/// @return the number of the live bundle at that address, unique in the process, or 0
unsigned long IdOf(const BundleObject* bundle);

/// The manager has entered the bundle in its table under that name.
void Register(const std::string& name, BundleObject* bundle);

/// The manager has cleared its table.
void UnregisterAll();

/// @return the live bundle that the manager knows by that name, or null
BundleObject* Registered(const std::string& name);

}  // namespace LiveBundles
}  // namespace NS_BUNDLEMGR1
