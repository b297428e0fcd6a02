#include "src/lifetime/servicebirth.h"

namespace NS_BUNDLEMGR1 {

namespace {

// The innermost birth on this thread.
thread_local const ServiceBirth* t_birth = nullptr;

}  // namespace

ServiceBirth::ServiceBirth(const std::string& bundleName, BundleObject* bundle)
    : m_strBundleName(bundleName), m_pBundle(bundle), m_pOuter(t_birth), m_nLastIdBefore(LiveServices::LastId()) {
    t_birth = this;
}

ServiceBirth::~ServiceBirth() {
    t_birth = m_pOuter;
}

std::vector<LiveServices::Service> ServiceBirth::Children() const {
    return LiveServices::MadeHereSince(m_nLastIdBefore);
}

void ServiceBirth::Publish() const {
    LiveServices::PublishMadeHereSince(m_nLastIdBefore);
}

bool ServiceBirth::Any() {
    return t_birth != nullptr;
}

BundleObject* ServiceBirth::BundleNamed(const std::string& name) {
    for (const ServiceBirth* birth = t_birth; birth != nullptr; birth = birth->m_pOuter) {
        if (birth->m_strBundleName == name) return birth->m_pBundle;
    }
    return nullptr;
}

}  // namespace NS_BUNDLEMGR1
