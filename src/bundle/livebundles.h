// Which bundles are still there.
#pragma once

namespace NS_BUNDLEMGR1 {

class BundleObject;

/// Every bundle of the process, from its construction to its destructor.
///
/// Bundles belong to their libraries and go with them; where a host ends without having
/// stopped, that is before the manager, and before the last thread that asks for them.
/// Thread-safe.
namespace LiveBundles {

void Enter(const BundleObject* bundle);

void Leave(const BundleObject* bundle);

bool Contains(const BundleObject* bundle);

}  // namespace LiveBundles
}  // namespace NS_BUNDLEMGR1
