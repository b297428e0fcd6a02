#include <utility>
#include <vector>

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>

#include <bundlemgr/kit.h>

namespace NS_BUNDLEMGR1 {

ServiceBundle::ServiceBundle(std::string name, int order) : m_strName(std::move(name)), m_nOrder(order) {}

ServiceBundle::~ServiceBundle() = default;

std::string ServiceBundle::GetName() {
    return m_strName;
}

int ServiceBundle::GetBundleOrder() {
    return m_nOrder;
}

void ServiceBundle::SetInterface() {
    BundleObject::SetInterface();
}

int ServiceBundle::Init() {
    if (m_isBegun) TakeBack();
    m_isBegun = true;
    SetInterface();
    const int result = LoadAllServiceObjects();
    return result == 0 ? BundleObject::Init() : result;
}

void ServiceBundle::Fini() {
    UnLoadAllServiceObjects();
    RemoveInterface();
    BundleObject::Fini();
}

// What an Init of before has left. Services newest first; unlike after unloading, their names are
// free again.
void ServiceBundle::TakeBack() {
    std::vector<std::string> names;
    {
        const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_lock);
        names.assign(m_vecServiceNames.rbegin(), m_vecServiceNames.rend());
    }
    for (const std::string& name : names) RemoveServiceObject(name.c_str());
    RemoveInterface();
}

}  // namespace NS_BUNDLEMGR1
