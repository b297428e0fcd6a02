// Which bundles are still there.
#pragma once

#include <list>
#include <string>
#include <vector>

namespace NS_BUNDLEMGR1 {

class BundleObject;

/// Every bundle of the process, from its construction to its destructor.
///
/// Bundles belong to their libraries and go with them; where a host ends without having
/// stopped, that is before the manager, and before the last thread that asks for them.
/// The next bundle may lie at the same address; the number that each of them gets here
/// tells them apart. Thread-safe, and never waits for the manager: what it knows serves
/// those who must not wait for the manager's table, see `IsTableOutOfReach`.
namespace LiveBundles {

void Enter(const BundleObject* bundle);

void Leave(const BundleObject* bundle);

/// @return the number of the live bundle at that address, unique in the process, or 0
unsigned long IdOf(const BundleObject* bundle);

/// The manager has entered the bundle in its table under that name.
void Register(const std::string& name, BundleObject* bundle);

/// The manager has read which bundles are configured, in file order.
void Configure(const std::vector<std::string>& names);

/// The manager has cleared its table.
void UnregisterAll();

/// @return the live bundle that the manager knows by that name, or null
BundleObject* Registered(const std::string& name);

/// @param out the live bundle of each configured name is appended, or null, last configured
///            first
void ConfiguredInReverseOrder(std::list<BundleObject*>& out);

}  // namespace LiveBundles
}  // namespace NS_BUNDLEMGR1
