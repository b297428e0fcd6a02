#include "src/lifetime/servicebirth.h"

namespace NS_BUNDLEMGR1 {

namespace {

// The innermost birth on this thread.
thread_local ServiceBirth* t_birth = nullptr;

}  // namespace

ServiceBirth::ServiceBirth(const std::string& bundleName, BundleObject* bundle)
    : m_strBundleName(bundleName),
      m_pBundle(bundle),
      m_pOuter(t_birth),
      m_vecMade(t_birth != nullptr ? t_birth->m_vecMade : m_vecOwnList),
      m_nMadeBefore(m_vecMade.size()) {
    t_birth = this;
}

ServiceBirth::~ServiceBirth() {
    t_birth = m_pOuter;
}

std::vector<LiveServices::Service> ServiceBirth::Children() const {
    std::vector<LiveServices::Service> children(MadeSince(), m_vecMade.end());
    LiveServices::KeepUnpublished(children, 0);
    return children;
}

void ServiceBirth::Publish() const {
    LiveServices::Publish(m_vecMade, m_nMadeBefore);
    m_vecMade.erase(MadeSince(), m_vecMade.end());
}

std::vector<LiveServices::Service>::iterator ServiceBirth::MadeSince() const {
    return m_vecMade.begin() + static_cast<std::ptrdiff_t>(m_nMadeBefore);
}

void ServiceBirth::MakeRoom() {
    if (t_birth == nullptr) return;
    std::vector<LiveServices::Service>& made = t_birth->m_vecMade;
    if (made.size() < made.capacity()) return;
    // Those before are of the births that it is nested in, which know them by their places.
    LiveServices::KeepUnpublished(made, t_birth->m_nMadeBefore);
    made.reserve(2 * made.size() + 1);
}

void ServiceBirth::Add(const LiveServices::Service& child) {
    if (t_birth != nullptr) t_birth->m_vecMade.push_back(child);
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
