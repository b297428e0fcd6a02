// Which service objects may be called, and by whom?
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace NS_BUNDLEMGR1 {

class BundleObject;
class ServiceObjectBase;

/// What the library calls a service for.
enum class CallPurpose {
    kUse,         ///< Not before its `init` has returned 0, but on the thread that makes it.
    kEndThreads,  ///< From its construction on: an `init` may wait for being told.
};

/// Every service object of the process, from its construction until it is removed or its
/// destructor runs, whichever comes first.
///
/// A bundle's table keeps the pointer of a service that is long gone, and the next service may
/// get the same address. So each object gets a number here, and is meant by address and
/// number. Thread-safe.
namespace LiveServices {

/// @return the number of the object, unique in the process and never 0
unsigned long Add(const ServiceObjectBase* service);

/// The object is gone.
void Remove(const ServiceObjectBase* service);

/// `Remove`, if the object at that address is still the one of that number.
void Remove(const ServiceObjectBase* service, unsigned long id);

/// @return the number of the live object at that address, or 0
unsigned long IdOf(const ServiceObjectBase* service);

/// The object's constructor has returned, and its destructor will run.
void MarkMade(const ServiceObjectBase* service);

/// The object of that number has failed to initialise: nobody calls it any more. It may have
/// been freed already.
void GiveUp(const ServiceObjectBase* service, unsigned long id);

/// @return whether the object may be freed without its destructor, by the configurator that
///         made it and without `Retire`
bool MayVanish(const ServiceObjectBase* service);

/// The calling thread is about to end the object: nobody else calls it from now on. Returns
/// when the calls of other threads have come back; while it waits, the thread lets go of its
/// locks (see `NestedGuard`).
void Retire(const ServiceObjectBase* service);

/// The configurator wants the object destroyed. It holds its lock, for which other threads that
/// are in the object may be waiting, so they cannot be waited for here.
/// @return false when no other thread is in the object; otherwise the last one to come back
///         destroys it
bool LeaveToCallers(ServiceObjectBase* service);

/// @return whether another thread is ending the object of that number
bool IsRetiredElsewhere(const ServiceObjectBase* service, unsigned long id);

/// Waits until the object of that number is gone; meanwhile the thread lets go of its locks.
void AwaitEnd(const ServiceObjectBase* service, unsigned long id);

/// A call of the calling thread into a service begins, if it is allowed. See `ServiceCall`.
/// @param id the number of the object that is meant; 0: whichever lives there
/// @return the number of the object, or 0 when it must not be called
unsigned long BeginCall(const ServiceObjectBase* service, unsigned long id, CallPurpose purpose);

/// The call has come back.
/// @return the service, when it is left to this thread to destroy it, or null
ServiceObjectBase* EndCall(const ServiceObjectBase* service, unsigned long id);

struct Service {
    const ServiceObjectBase* object;
    unsigned long id;
};

/// Leaves in the list, from a place in it on, only services that the calling thread has made
/// and that only this thread may use yet.
void KeepUnpublished(std::vector<Service>& services, std::size_t from);

/// Such services, from a place in the list on, are ready for every thread, all at once; others
/// stay as they are.
void Publish(const std::vector<Service>& services, std::size_t from);

}  // namespace LiveServices

}  // namespace NS_BUNDLEMGR1
