// What a bundle needs of ACE's service repository beyond its plain interface.
#pragma once

#include <functional>
#include <string>

class ACE_Service_Type;

namespace NS_BUNDLEMGR1 {

class ServiceObjectBase;

namespace ServiceRepository {

/// Calls `action` for each entry of that name, suspended ones left out. Entries that
/// have been finalised already are still among them.
void ForEachNamed(const std::string& name, const std::function<void(ACE_Service_Type&)>& action);

/// @return the service object under that name that has not been finalised, or null;
///         null also for a service that is not of this library's kind
ServiceObjectBase* FindObject(const std::string& name);

/// @return what `init` of the service of that name returned; 0 where there is no such
///         service
int InitResult(const std::string& name);

/// Calls `fini` of the entry's service and destroys the service, also when `fini`
/// throws.
void Finalize(ACE_Service_Type& entry);

/// Takes the service of that name out, finalises and destroys it, also when its `fini`
/// throws.
/// @return whether there was one
bool Remove(const std::string& name);

}  // namespace ServiceRepository
}  // namespace NS_BUNDLEMGR1
