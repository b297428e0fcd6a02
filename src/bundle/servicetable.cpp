#include "src/bundle/servicetable.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "src/corelog/assertion.h"
#include "src/corelog/usercode.h"
#include "src/lifetime/heldbundle.h"
#include "src/lifetime/inservice.h"
#include "src/lifetime/livebundles.h"
#include "src/lifetime/servicecall.h"

namespace NS_BUNDLEMGR1 {

namespace {

// Operators' log filters go by the source and the line of this assertion.
constexpr char kRecordSource[] = "bundledef";
constexpr int kLineAssertNewService = 148;

CoreLog g_log(kRecordSource);

// The place of GetAllServiceObjects among the virtual operations of a BundleObject, the two
// destructors included. That it stays is the contract with bundles in the field.
constexpr std::size_t kGetAllServiceObjects = 12;

// What the operation is where a class does not override it.
std::atomic<const void*> g_pOwnGetAllServiceObjects{nullptr};

/// @return the function that a call of that operation reaches, as the C++ ABI of all compilers on
///         this platform has it: an object begins with the address of its class's table
const void* OperationOf(const BundleObject& bundle, std::size_t place) {
    const unsigned char* table = nullptr;
    std::memcpy(&table, static_cast<const void*>(&bundle), sizeof(table));
    const void* operation = nullptr;
    std::memcpy(&operation, table + place * sizeof(operation), sizeof(operation));
    return operation;
}

// The copy of a large table takes long, and one service is all that is sought: only a class that
// overrides the operation is asked for its services.
ServiceObjectBase* ServiceNamed(BundleObject& bundle, const std::map<std::string, ServiceObjectBase*>& table,
                                const std::string& name) {
    std::map<std::string, ServiceObjectBase*> listed;
    const bool isOverridden = OperationOf(bundle, kGetAllServiceObjects) != g_pOwnGetAllServiceObjects;
    if (isOverridden) bundle.GetAllServiceObjects(listed);
    const std::map<std::string, ServiceObjectBase*>& services = isOverridden ? listed : table;
    const auto service = services.find(name);
    return service != services.end() ? service->second : nullptr;
}

}  // namespace

void ServiceTable::NoteOwnOperations(const BundleObject& bundle) {
    g_pOwnGetAllServiceObjects = OperationOf(bundle, kGetAllServiceObjects);
}

bool ServiceTable::Has(const std::string& name) const {
    return m_bundle.m_serviceObjectMap.find(name) != m_bundle.m_serviceObjectMap.end() && !IsEndedElsewhere(name);
}

// Nearly always the map knows, in which the name is found sooner.
bool ServiceTable::Lists(const std::string& name) const {
    const std::vector<std::string>& names = m_bundle.m_vecServiceNames;
    return m_bundle.m_serviceObjectMap.find(name) != m_bundle.m_serviceObjectMap.end() ||
           std::find(names.begin(), names.end(), name) != names.end();
}

unsigned long ServiceTable::IdOf(const std::string& name) const {
    return LiveBundles::ServiceId(&m_bundle, name);
}

bool ServiceTable::IsEndedElsewhere(const std::string& name) const {
    const auto entry = m_bundle.m_serviceObjectMap.find(name);
    return entry != m_bundle.m_serviceObjectMap.end() && LiveServices::IsRetiredElsewhere(entry->second, IdOf(name));
}

void ServiceTable::Register(const std::string& strSvcName, ServiceObjectBase* service) {
    std::map<std::string, ServiceObjectBase*>& map = m_bundle.m_serviceObjectMap;
    // Another thread is ending the service of before, and would have taken it out of the table
    // by now if it had not to wait for a lock.
    if (IsEndedElsewhere(strSvcName)) Forget(strSvcName);
    Assert(map.find(strSvcName) == map.end(), "m_serviceObjectMap.find(strSvcName) == m_serviceObjectMap.end()",
           kRecordSource, kLineAssertNewService);
    try {
        LiveBundles::SetService(&m_bundle, strSvcName, LiveServices::IdOf(service));
        map[strSvcName] = service;
        m_bundle.m_vecServiceNames.push_back(strSvcName);
    } catch (...) {
        Forget(strSvcName);
        throw;
    }
}

void ServiceTable::Forget(const std::string& name) {
    m_bundle.m_serviceObjectMap.erase(name);
    LiveBundles::ForgetService(&m_bundle, name);
    std::vector<std::string>& names = m_bundle.m_vecServiceNames;
    const auto listed = std::find(names.begin(), names.end(), name);
    if (listed != names.end()) names.erase(listed);
}

void ServiceTable::AwaitEndElsewhere(const std::string& name) {
    if (InService::IsActive() || !IsEndedElsewhere(name)) return;
    const ServiceObjectBase* const service = m_bundle.m_serviceObjectMap[name];
    const unsigned long id = IdOf(name);
    LiveServices::AwaitEnd(service, id != 0 ? id : LiveServices::IdOf(service));
}

std::vector<std::string> ServiceTable::NamesNewestFirst() const {
    return {m_bundle.m_vecServiceNames.rbegin(), m_bundle.m_vecServiceNames.rend()};
}

void ServiceTable::ExitThreadsOf(const std::string& name) {
    const auto entry = m_bundle.m_serviceObjectMap.find(name);
    if (entry == m_bundle.m_serviceObjectMap.end()) return;
    ServiceObjectBase* const service = entry->second;
    const ServiceCall call(service, IdOf(name), CallPurpose::kEndThreads);
    if (!call) return;
    Contain(g_log, __LINE__, "ExitThreads", UserCode{"service", name.c_str()}, [service] { service->ExitThreads(); });
}

void ServiceTable::FindInterface(BundleObject& bundle, const std::string& name, void* (*cast)(ServiceInterface*),
                                 const std::function<void(ServiceInterface*, void*)>& found) {
    const HeldBundle held(bundle.m_lock);
    ServiceObjectBase* const service = ServiceNamed(bundle, bundle.m_serviceObjectMap, name);
    if (service == nullptr) return;
    const ServiceCall call(service, ServiceTable(bundle).IdOf(name), CallPurpose::kUse);
    ServiceInterface* const iface = call ? service->GetInterface() : nullptr;
    void* const typed = iface != nullptr ? cast(iface) : nullptr;
    if (typed != nullptr) found(iface, typed);
}

}  // namespace NS_BUNDLEMGR1
