// Which services is this thread bringing up, and for which bundle?
#pragma once

#include <string>
#include <vector>

#include "src/lifetime/inservice.h"
#include "src/lifetime/liveservices.h"

namespace NS_BUNDLEMGR1 {

class BundleObject;

/// The bringing up of a service by the configurator, from before its factory is called.
///
/// A service registers itself in its constructor, half-made. Until `Publish` only the
/// thread that makes it may use it; a service that nobody brings up this way, but
/// somebody constructs, is everybody's at once.
class ServiceBirth {
public:
    /// @param bundleName name of the bundle that loads the service
    /// @param bundle     the bundle, or null when the manager does not know it
    ServiceBirth(const std::string& bundleName, BundleObject* bundle);
    ~ServiceBirth();
    ServiceBirth(const ServiceBirth&) = delete;
    ServiceBirth& operator=(const ServiceBirth&) = delete;

    /// @return the live services made since that are not published yet
    std::vector<LiveServices::Service> Children() const;

    /// The services made since are ready for every thread, all at once.
    void Publish() const;

    /// The calling thread is about to make a service: where there is no room for it, services
    /// that have gone are forgotten, since an init may make and delete them for ever.
    static void MakeRoom();

    /// The calling thread has made a service, by the one of its births that is innermost.
    static void Add(const LiveServices::Service& child);

    /// @return whether the calling thread brings one up
    static bool Any();

    /// @return the bundle of that name that this thread loads services for, or null. The
    ///         configurator locks its repository over the whole birth, so the manager,
    ///         which locks its table, is better not asked for it
    static BundleObject* BundleNamed(const std::string& name);

private:
    std::vector<LiveServices::Service>::iterator MadeSince() const;

    const std::string m_strBundleName;
    BundleObject* const m_pBundle;
    ServiceBirth* const m_pOuter;  // the one that it is nested in, on this thread
    mutable std::vector<LiveServices::Service> m_vecOwnList;
    std::vector<LiveServices::Service>& m_vecMade;  // of all births that are nested in one
    const std::size_t m_nMadeBefore;
    const InService m_scope;
};

}  // namespace NS_BUNDLEMGR1
