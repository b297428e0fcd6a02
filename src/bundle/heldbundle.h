// Which bundles the calling thread holds.
#pragma once

#include <string>

namespace NS_BUNDLEMGR1 {

class BundleObject;

/// A bundle whose lock the calling thread holds, for the life of this object, while it
/// calls services of the bundle.
///
/// A service that is being ended asks the manager for its bundle, in order to take itself
/// out of it. The manager's table comes before a bundle in the order of locks, so this
/// thread must not wait for it any more.
class HeldBundle {
public:
    explicit HeldBundle(BundleObject* bundle);
    ~HeldBundle();
    HeldBundle(const HeldBundle&) = delete;
    HeldBundle& operator=(const HeldBundle&) = delete;

    /// @return the bundle that the manager knows by that name, if the calling thread holds
    ///         it; otherwise null
    static BundleObject* Named(const std::string& name);

private:
    BundleObject* const m_pBundle;
    const HeldBundle* const m_pOuter;  // held by this thread, too
};

}  // namespace NS_BUNDLEMGR1
