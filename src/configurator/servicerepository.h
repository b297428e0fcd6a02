// What a bundle needs of ACE's service repository beyond its plain interface.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Service_Object.h>

#include "src/lifetime/yieldingguard.h"

namespace NS_BUNDLEMGR1 {

class ServiceObjectBase;

/// A service that was taken out of the repository and is to be finalised.
using ServiceEntry = std::unique_ptr<ACE_Service_Type>;

/// The repository, locked for the life of this object.
///
/// The configurator holds the repository's lock while it calls factories and `init`, which lock
/// bundles in their turn. So a thread lets go of all its locks (see `NestedGuard`) while it
/// waits for the repository, and finalises no service while it has it.
class ServiceRepository {
public:
    ServiceRepository();

    /// @return what `init` of the service of that name returned; 0 where there is no
    ///         such service
    int InitResult(const std::string& name) const;

    /// @return whether the object is a service of any other name than that
    bool HoldsUnderAnotherName(const ServiceObjectBase* service, const std::string& name) const;

    /// @return the service of that name, or null
    ServiceEntry Take(const std::string& name);

    /// @return all services of that name that are not suspended
    std::vector<ServiceEntry> TakeActive(const std::string& name);

    /// @return how many places the repository has for services, taken or free
    std::size_t CountPlaces() const;

    /// Moves services into free places before them, and has the repository forget those that are
    /// then free at its end: by itself it keeps every place for ever, and searches all of them
    /// for each service. The order of services stays, and static ones stay where they are.
    /// @param places how many are kept in any case: as many as there were when this thread got
    ///        the repository. Whoever has ACE load a library at that time, this thread or one
    ///        that waits, remembers that number, and what comes with the library has its place
    ///        behind
    void CloseGaps(std::size_t places);

    /// @return false for an object that is certainly not, or no longer, a service that is to
    ///         be finalised; another thread that is in the repository is not waited for
    static bool MayKeep(const ServiceObjectBase* service);

    /// @return the service object of the entry; null when it is not of this library's
    ///         kind or has been finalised
    static ServiceObjectBase* ObjectOf(const ACE_Service_Type& entry);

    /// Calls `fini` of the entry's service and destroys the service, also when `fini`
    /// throws.
    /// @param report gets the text of what `fini` threw
    static void Finalize(ACE_Service_Type& entry, const std::function<void(const char*)>& report);

private:
    YieldingGuard<ACE_Recursive_Thread_Mutex> m_guard;
};

}  // namespace NS_BUNDLEMGR1
