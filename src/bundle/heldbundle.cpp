#include "bundle/heldbundle.h"

#include "bundle/livebundles.h"

namespace NS_BUNDLEMGR1 {

namespace {

// The one that the calling thread took last.
thread_local const HeldBundle* t_held = nullptr;

}  // namespace

HeldBundle::HeldBundle(BundleObject* bundle) : m_pBundle(bundle), m_pOuter(t_held) {
    t_held = this;
}

HeldBundle::~HeldBundle() {
    t_held = m_pOuter;
}

BundleObject* HeldBundle::Named(const std::string& name) {
    if (t_held == nullptr) return nullptr;
    BundleObject* const registered = LiveBundles::Registered(name);
    for (const HeldBundle* held = t_held; held != nullptr; held = held->m_pOuter) {
        if (held->m_pBundle == registered) return registered;
    }
    return nullptr;
}

}  // namespace NS_BUNDLEMGR1
