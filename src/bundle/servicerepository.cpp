#include "bundle/servicerepository.h"

#include <memory>

#include <ace/Service_Repository.h>
#include <ace/Service_Types.h>

#include "bundlemgr/bundle.h"

namespace NS_BUNDLEMGR1 {
namespace ServiceRepository {

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

void ForEach(bool ignoreSuspended, const std::string& name, const std::function<void(ACE_Service_Type&)>& action) {
    ACE_Service_Repository_Iterator entries(*ACE_Service_Repository::instance(kRepositorySize), ignoreSuspended);
    for (const ACE_Service_Type* entry = nullptr; entries.next(entry) != 0; entries.advance()) {
        if (name == entry->name()) action(const_cast<ACE_Service_Type&>(*entry));
    }
}

// The repository's own look-up ends at the first entry of a name, which may be one
// that was finalised long ago.
const ACE_Service_Type* FindLive(const std::string& name) {
    const ACE_Service_Type* found = nullptr;
    ForEach(false, name, [&found](ACE_Service_Type& entry) {
        if (!entry.fini_called() && entry.type() != nullptr) found = &entry;
    });
    return found;
}

}  // namespace

void ForEachNamed(const std::string& name, const std::function<void(ACE_Service_Type&)>& action) {
    ForEach(true, name, action);
}

ServiceObjectBase* FindObject(const std::string& name) {
    const ACE_Service_Type* const entry = FindLive(name);
    if (entry == nullptr || dynamic_cast<const ACE_Service_Object_Type*>(entry->type()) == nullptr) return nullptr;
    return dynamic_cast<ServiceObjectBase*>(static_cast<ACE_Service_Object*>(entry->type()->object()));
}

int InitResult(const std::string& name) {
    const ACE_Service_Type* const entry = FindLive(name);
    if (entry == nullptr) return 0;
    const auto* const type = dynamic_cast<const ACE_Service_Object_Type*>(entry->type());
    return type != nullptr ? ReadInitStatus(*type) : 0;
}

void Finalize(ACE_Service_Type& entry) {
    const ACE_Service_Type_Impl* const type = entry.type();
    try {
        entry.fini();
    } catch (...) {
        // The entry counts as finalised now, and nobody would destroy the object.
        if (type != nullptr) type->ACE_Service_Type_Impl::fini();
        throw;
    }
}

bool Remove(const std::string& name) {
    // The configurator's own remove finalises in a destructor, which must not throw.
    ACE_Service_Type* removed = nullptr;
    if (ACE_Service_Repository::instance(kRepositorySize)->remove(name.c_str(), &removed) == 0) {
        const std::unique_ptr<ACE_Service_Type> owner(removed);
        Finalize(*removed);
        return true;
    }
    // Hidden from the repository's look-up by a finalised entry of the same name.
    const ACE_Service_Type* const hidden = FindLive(name);
    if (hidden == nullptr) return false;
    Finalize(const_cast<ACE_Service_Type&>(*hidden));
    return true;
}

}  // namespace ServiceRepository
}  // namespace NS_BUNDLEMGR1
