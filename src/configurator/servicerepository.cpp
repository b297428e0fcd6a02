#include "src/configurator/servicerepository.h"

#include <ace/Guard_T.h>
#include <ace/Service_Repository.h>
#include <ace/Service_Types.h>

#include <bundlemgr/bundle.h>

#include "src/corelog/currentexception.h"
#include "src/lifetime/nestedlock.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr std::size_t kRepositorySize = 1024;

// The configurator counts only -1 as a failure of a service's init, and keeps the
// result in a private member. Naming it in an explicit instantiation is the one way to
// a private member that the language allows.
template <int ACE_Service_Object_Type::*InitStatus>
struct InitStatusReader {
    friend int ReadInitStatus(const ACE_Service_Object_Type& type) { return type.*InitStatus; }
};
int ReadInitStatus(const ACE_Service_Object_Type& type);
template struct InitStatusReader<&ACE_Service_Object_Type::initialized_>;

ACE_Service_Repository& Repository() {
    return *ACE_Service_Repository::instance(kRepositorySize);
}

template <class Accept>
std::vector<ACE_Service_Type*> FindLive(bool ignoreSuspended, Accept accept) {
    std::vector<ACE_Service_Type*> found;
    ACE_Service_Repository_Iterator entries(Repository(), ignoreSuspended);
    for (const ACE_Service_Type* entry = nullptr; entries.next(entry) != 0; entries.advance()) {
        if (entry->fini_called() || entry->type() == nullptr || !accept(*entry)) continue;
        found.push_back(const_cast<ACE_Service_Type*>(entry));
    }
    return found;
}

// The repository's own look-up ends at the first entry of a name, which may be one
// that was finalised in its place long ago.
std::vector<ACE_Service_Type*> FindNamed(const std::string& name, bool ignoreSuspended) {
    return FindLive(ignoreSuspended, [&name](const ACE_Service_Type& entry) { return name == entry.name(); });
}

// An entry that hides behind a finalised one of the same name cannot be removed.
ServiceEntry TakeOut(ACE_Service_Type* entry) {
    ACE_Service_Type* removed = nullptr;
    if (Repository().remove(entry->name(), &removed) == 0) return ServiceEntry(removed);
    return ServiceEntry(entry, ServiceEntryDeleter{true});
}

}  // namespace

void ServiceEntryDeleter::operator()(ACE_Service_Type* entry) const {
    if (!inRepository) delete entry;
}

ServiceRepository::ServiceRepository() : m_guard(Repository().lock(), HeldLocks()) {}

int ServiceRepository::InitResult(const std::string& name) const {
    const std::vector<ACE_Service_Type*> live = FindNamed(name, false);
    if (live.empty()) return 0;
    const auto* const type = dynamic_cast<const ACE_Service_Object_Type*>(live.back()->type());
    return type != nullptr ? ReadInitStatus(*type) : 0;
}

bool ServiceRepository::HoldsUnderAnotherName(const ServiceObjectBase* service, const std::string& name) const {
    const auto isThat = [service, &name](const ACE_Service_Type& entry) {
        return name != entry.name() && ObjectOf(entry) == service;
    };
    return !FindLive(false, isThat).empty();
}

ServiceEntry ServiceRepository::Take(const std::string& name) {
    const std::vector<ACE_Service_Type*> live = FindNamed(name, false);
    return live.empty() ? ServiceEntry() : TakeOut(live.back());
}

std::vector<ServiceEntry> ServiceRepository::TakeActive(const std::string& name) {
    std::vector<ServiceEntry> taken;
    for (ACE_Service_Type* const entry : FindNamed(name, true)) taken.push_back(TakeOut(entry));
    return taken;
}

bool ServiceRepository::MayKeep(const ServiceObjectBase* service) {
    const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(Repository().lock(), false);
    if (!guard.locked()) return true;
    return !FindLive(false, [service](const ACE_Service_Type& entry) { return ObjectOf(entry) == service; }).empty();
}

ServiceObjectBase* ServiceRepository::ObjectOf(const ACE_Service_Type& entry) {
    if (dynamic_cast<const ACE_Service_Object_Type*>(entry.type()) == nullptr) return nullptr;
    return dynamic_cast<ServiceObjectBase*>(static_cast<ACE_Service_Object*>(entry.type()->object()));
}

void ServiceRepository::Finalize(ACE_Service_Type& entry, const std::function<void(const char*)>& report) {
    const ACE_Service_Type_Impl* const type = entry.type();
    // Reported at once: what was thrown may be of a type whose code is in the service's
    // library, which is closed with the entry.
    if (ReportException([&entry] { entry.fini(); }, report)) return;
    // The entry counts as finalised now, and nobody else would destroy the object.
    type->ACE_Service_Type_Impl::fini();
    entry.type(nullptr, false);
}

}  // namespace NS_BUNDLEMGR1
