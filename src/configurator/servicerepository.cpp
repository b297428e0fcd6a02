#include "src/configurator/servicerepository.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <ace/DLL.h>
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

// ACE's iterator searches for each entry that it steps to, and its own removal for the name; its
// slots, in the order in which services came, are open to derived classes only.
struct Slots : ACE_Service_Repository {
    using Array = array_type;
    using Slot = Array::value_type;

    static Array& OfRepository() { return Repository().*(&Slots::service_array_); }
    static bool IsFree(const Slot& slot) { return slot.second == nullptr; }
};

bool IsLive(const ACE_Service_Type& entry) {
    return !entry.fini_called() && entry.type() != nullptr;
}

// Half the cost of a string's own comparison, and walks do little else.
bool IsNamed(const ACE_Service_Type& entry, const std::string& name) {
    return std::strcmp(entry.name(), name.c_str()) == 0;
}

// The live entries of a name. There is one at most, where it comes first: ACE puts a service in
// the place of the first entry of its name, and behind the others only when that was finalised
// where it stands, which it stays.
std::vector<ACE_Service_Type*> FindNamed(const std::string& name) {
    std::vector<ACE_Service_Type*> found;
    bool isFirst = true;
    for (const Slots::Slot& slot : Slots::OfRepository()) {
        if (Slots::IsFree(slot) || !IsNamed(*slot.second, name)) continue;
        if (IsLive(*slot.second)) found.push_back(const_cast<ACE_Service_Type*>(slot.second));
        if (isFirst && !slot.second->fini_called()) break;
        isFirst = false;
    }
    return found;
}

template <class Accept>
ACE_Service_Type* FindLast(Accept accept) {
    const Slots::Array& slots = Slots::OfRepository();
    const auto isMeant = [&accept](const Slots::Slot& slot) {
        return !Slots::IsFree(slot) && IsLive(*slot.second) && accept(*slot.second);
    };
    const auto found = std::find_if(slots.rbegin(), slots.rend(), isMeant);
    return found != slots.rend() ? const_cast<ACE_Service_Type*>(found->second) : nullptr;
}

ACE_Service_Type* FindLastNamed(const std::string& name) {
    return FindLast([&name](const ACE_Service_Type& entry) { return IsNamed(entry, name); });
}

// The service may be gone, and its address that of another, of any kind. Its address is compared
// first, since walks do little else.
bool IsOf(const ServiceObjectBase* service, const ACE_Service_Type& entry) {
    return entry.type()->object() == static_cast<const ACE_Service_Object*>(service) &&
           ServiceRepository::ObjectOf(entry) == service;
}

// A static service may not: when the loading of a library ends, ACE has those that came since, as
// their places tell, keep the library, where their code may be.
bool MayMove(const ACE_Service_Type& entry) {
    return entry.fini_called() || entry.dll().get_handle() != ACE_SHLIB_INVALID_HANDLE;
}

ServiceEntry TakeOut(ACE_Service_Type* entry) {
    Slots::Array& slots = Slots::OfRepository();
    const auto isThat = [entry](const Slots::Slot& slot) { return slot.second == entry; };
    std::find_if(slots.rbegin(), slots.rend(), isThat)->second = nullptr;
    return ServiceEntry(entry);
}

}  // namespace

ServiceRepository::ServiceRepository() : m_guard(Repository().lock(), HeldLocks()) {}

int ServiceRepository::InitResult(const std::string& name) const {
    const ACE_Service_Type* const entry = FindLastNamed(name);
    if (entry == nullptr) return 0;
    const auto* const type = dynamic_cast<const ACE_Service_Object_Type*>(entry->type());
    return type != nullptr ? ReadInitStatus(*type) : 0;
}

bool ServiceRepository::HoldsUnderAnotherName(const ServiceObjectBase* service, const std::string& name) const {
    const auto isThat = [service, &name](const ACE_Service_Type& entry) {
        return IsOf(service, entry) && !IsNamed(entry, name);
    };
    return FindLast(isThat) != nullptr;
}

ServiceEntry ServiceRepository::Take(const std::string& name) {
    ACE_Service_Type* const entry = FindLastNamed(name);
    return entry != nullptr ? TakeOut(entry) : ServiceEntry();
}

std::vector<ServiceEntry> ServiceRepository::TakeActive(const std::string& name) {
    std::vector<ServiceEntry> taken;
    for (ACE_Service_Type* const entry : FindNamed(name)) {
        if (entry->active()) taken.push_back(TakeOut(entry));
    }
    return taken;
}

std::size_t ServiceRepository::CountPlaces() const {
    return Slots::OfRepository().size();
}

void ServiceRepository::CloseGaps(std::size_t places) {
    Slots::Array& slots = Slots::OfRepository();
    // All that lies between the gap and the slot is free.
    auto gap = std::find_if(slots.begin(), slots.end(), Slots::IsFree);
    for (auto slot = gap; slot != slots.end(); ++slot) {
        if (Slots::IsFree(*slot)) continue;
        if (MayMove(*slot->second)) {
            std::swap((gap++)->second, slot->second);
        } else {
            gap = slot + 1;
        }
    }
    while (slots.size() > places && Slots::IsFree(*slots.rbegin())) slots.erase(slots.end() - 1);
}

bool ServiceRepository::MayKeep(const ServiceObjectBase* service) {
    const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(Repository().lock(), false);
    if (!guard.locked()) return true;
    return FindLast([service](const ACE_Service_Type& entry) { return IsOf(service, entry); }) != nullptr;
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
