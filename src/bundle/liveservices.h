// Which service objects may be called.
#pragma once

#include <string>
#include <vector>

namespace NS_BUNDLEMGR1 {

class BundleObject;
class ServiceObjectBase;

/// Every service object of the process, from its construction to its `fini` or its
/// destructor, whichever comes first.
///
/// A bundle's table keeps the pointer of a service that is long gone, and the next
/// service may lie at the same address; the number that each object gets here tells
/// them apart. Thread-safe.
namespace LiveServices {

/// @return the number of the object, unique in the process and never 0
unsigned long Enter(const ServiceObjectBase* service);

/// The object must not be called any more.
void Leave(const ServiceObjectBase* service);

/// `Leave`, if the object at that address is still the one of that number.
void Leave(const ServiceObjectBase* service, unsigned long id);

/// @return the number of the live object at that address; 0 where there is none, or
///         one that another thread is still bringing up, see `ServiceBirth`
unsigned long IdOf(const ServiceObjectBase* service);

}  // namespace LiveServices

/// The bringing up of a service by the configurator, from before its factory is called.
///
/// A service registers itself in its constructor, half-made. Until `Publish` only the
/// thread that makes it may call it; a service that nobody brings up this way, but
/// somebody constructs, is everybody's at once.
class ServiceBirth {
public:
    /// @param bundleName name of the bundle that loads the service
    /// @param bundle     the bundle, or null when the manager does not know it
    ServiceBirth(const std::string& bundleName, BundleObject* bundle);
    ~ServiceBirth();
    ServiceBirth(const ServiceBirth&) = delete;
    ServiceBirth& operator=(const ServiceBirth&) = delete;

    struct Child {
        const ServiceObjectBase* service;
        unsigned long id;  ///< See `LiveServices`.
    };

    /// @return the live services made since that are not published yet
    std::vector<Child> Children() const;

    /// The services made since are ready for every thread.
    void Publish() const;

    /// @return the bundle of that name that this thread loads services for, or null. The
    ///         configurator locks its repository over the whole birth, so the manager,
    ///         which locks its table, is better not asked for it
    static BundleObject* BundleNamed(const std::string& name);

private:
    const std::string m_strBundleName;
    BundleObject* const m_pBundle;
    const ServiceBirth* const m_pOuter;  // the one that it is nested in, on this thread
    const unsigned long m_nLastIdBefore;
};

}  // namespace NS_BUNDLEMGR1
