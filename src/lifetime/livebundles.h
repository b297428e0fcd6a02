// Which bundles are still there, and which object does each name in their tables stand for?
#pragma once

#include <list>
#include <string>
#include <vector>

namespace NS_BUNDLEMGR1 {

class BundleObject;

/// Every bundle of the process, from its construction to its destructor.
///
/// Bundles are deleted with their libraries. In a host that ends without having stopped, that
/// is before the manager goes, and before the last thread that asks for a bundle. The next
/// bundle may get the same address, so each gets a number here. Thread-safe, and never waits
/// for the manager: threads that must not wait for its table (see `HeldBundle`) ask here.
namespace LiveBundles {

void Add(const BundleObject* bundle);

void Remove(const BundleObject* bundle);

/// @return the number of the live bundle at that address, unique in the process, or 0
unsigned long IdOf(const BundleObject* bundle);

/// @name The services in a bundle's table
/// The pointers in the table outlive the services that they point to. What tells them from
/// their successors stays here, since bundles in the field know the size of a `BundleObject`.
/// @{

/// The bundle has registered a service.
/// @param id the number of the object, see `LiveServices`
void SetService(const BundleObject* bundle, const std::string& service, unsigned long id);

/// @return the number of the object that the name stands for; 0 where a bundle has put it into
///         its table by itself
unsigned long ServiceId(const BundleObject* bundle, const std::string& service);

/// The bundle has taken the service out of its table.
void ForgetService(const BundleObject* bundle, const std::string& service);
/// @}

/// The manager has put the bundle into its table under that name.
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
