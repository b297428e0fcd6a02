// Which bundles are still there.
#pragma once

namespace NS_BUNDLEMGR1 {

class BundleObject;

/// Every bundle of the process, from its construction to its destructor.
///
/// Bundles belong to their libraries and go with them; where a host ends without having
/// stopped, that is before the manager, and before the last thread that asks for them.
/// The next bundle may lie at the same address; the number that each of them gets here
/// tells them apart. Thread-safe.
namespace LiveBundles {

void Enter(const BundleObject* bundle);

void Leave(const BundleObject* bundle);

/// @return the number of the live bundle at that address, unique in the process, or 0
unsigned long IdOf(const BundleObject* bundle);

}  // namespace LiveBundles
}  // namespace NS_BUNDLEMGR1
