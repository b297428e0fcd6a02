// Which service objects may be called.
#pragma once

#include <string>
#include <vector>

namespace NS_BUNDLEMGR1 {

class BundleObject;
class ServiceObjectBase;

/// Every service object of the process, from its construction until it is removed or its
/// destructor runs, whichever comes first.
///
/// A bundle's table keeps the pointer of a service that is long gone, and the next
/// service may lie at the same address; the number that each object gets here tells
/// them apart. Thread-safe.
namespace LiveServices {

/// @return the number of the object, unique in the process and never 0
unsigned long Enter(const ServiceObjectBase* service);

/// The object is there no more.
void Leave(const ServiceObjectBase* service);

/// `Leave`, if the object at that address is still the one of that number.
void Leave(const ServiceObjectBase* service, unsigned long id);

/// @return the number of the live object at that address, or 0
unsigned long IdOf(const ServiceObjectBase* service);

/// The object's constructor has returned, and its destructor will run one day.
void MarkMade(const ServiceObjectBase* service);

/// Nobody calls the object of that number any more, which did not initialise. It may be gone
/// already.
void GiveUp(const ServiceObjectBase* service, unsigned long id);

/// @return whether the object may be freed without its destructor, by the configurator that
///         made it and without `Retire`
bool MayVanish(const ServiceObjectBase* service);

/// The calling thread is about to end the object. Nobody else calls it from now on; returns
/// when those who are in a call have come back. The locks of the thread (see `NestedGuard`)
/// are let go of while it waits.
void Retire(const ServiceObjectBase* service);

/// The configurator wants the object destroyed, which may have failed to initialise, under
/// its lock, which those who are in a call may be waiting for.
/// @return false when nobody else is in a call; otherwise the last one to come back destroys it
bool LeaveToCallers(ServiceObjectBase* service);

/// @return whether another thread is ending the object of that number
bool IsRetiredElsewhere(const ServiceObjectBase* service, unsigned long id);

/// Waits until the object of that number is there no more, without the locks of the thread.
void AwaitEnd(const ServiceObjectBase* service, unsigned long id);

}  // namespace LiveServices

/// While it lives, the calling thread is in the code of a service. Others may wait for it to
/// come back, so it must not wait for them.
class InService {
public:
    InService() { ++Depth(); }
    ~InService() { --Depth(); }
    InService(const InService&) = delete;
    InService& operator=(const InService&) = delete;

    static bool IsActive() { return Depth() > 0; }

private:
    static unsigned& Depth() {
        static thread_local unsigned t_depth = 0;
        return t_depth;
    }
};

/// A call of the library into a service, which is not destroyed by another thread meanwhile.
class ServiceCall {
public:
    enum Purpose {
        kUse,         ///< Not before its `init` has returned 0, but on the thread that makes it.
        kEndThreads,  ///< From its construction on: an `init` may wait for being told.
    };

    /// @param id the number of the object that is meant; 0: whichever lives there
    ServiceCall(const ServiceObjectBase* service, unsigned long id, Purpose purpose);
    ~ServiceCall();
    ServiceCall(const ServiceCall&) = delete;
    ServiceCall& operator=(const ServiceCall&) = delete;

    /// @return whether the service may be called
    explicit operator bool() const { return m_nId != 0; }

private:
    ServiceObjectBase* EndCall() const;

    const ServiceObjectBase* const m_pService;
    unsigned long m_nId = 0;
    const InService m_scope;
};

/// The end of a service on this thread: nobody else calls it from now on, and with this object
/// it is there no more.
class ServiceEnd {
public:
    explicit ServiceEnd(const ServiceObjectBase* service) : m_pService(service), m_nId(LiveServices::IdOf(service)) {
        LiveServices::Retire(service);
    }
    ~ServiceEnd() {
        // Without an exterminator the object was freed without its destructor.
        if (m_nId != 0) LiveServices::Leave(m_pService, m_nId);
    }
    ServiceEnd(const ServiceEnd&) = delete;
    ServiceEnd& operator=(const ServiceEnd&) = delete;

private:
    const ServiceObjectBase* const m_pService;
    const unsigned long m_nId;
    const InService m_scope;
};

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

    struct Child {
        const ServiceObjectBase* service;
        unsigned long id;  ///< See `LiveServices`.
    };

    /// @return the live services made since that are not published yet
    std::vector<Child> Children() const;

    /// The services made since are ready for every thread.
    void Publish() const;

    /// @return whether the calling thread brings one up
    static bool Any();

    /// @return the bundle of that name that this thread loads services for, or null. The
    ///         configurator locks its repository over the whole birth, so the manager,
    ///         which locks its table, is better not asked for it
    static BundleObject* BundleNamed(const std::string& name);

private:
    const std::string m_strBundleName;
    BundleObject* const m_pBundle;
    const ServiceBirth* const m_pOuter;  // the one that it is nested in, on this thread
    const unsigned long m_nLastIdBefore;
    const InService m_scope;
};

}  // namespace NS_BUNDLEMGR1
