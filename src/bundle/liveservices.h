// Which service objects may still be called.
#pragma once

namespace NS_BUNDLEMGR1 {

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

/// @return the number of the live object at that address, or 0
unsigned long IdOf(const ServiceObjectBase* service);

}  // namespace LiveServices
}  // namespace NS_BUNDLEMGR1
