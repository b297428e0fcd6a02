// What the agent knows of its network elements: the feed of their alarms, and counts of
// them. Its services are named in its svc.cfg; each lives in a library of its own.
#include <bundlemgr/bundle.h>

namespace {

class DomainBundle : public NS_BUNDLEMGR1::BundleObject {
public:
    std::string GetName() override { return "zo_domain_bundle"; }

    // After zo_base_bundle, whose services it uses.
    int GetBundleOrder() override { return 20; }

    // Its services publish the interfaces; the bundle itself has none.
    void SetInterface() override { BundleObject::SetInterface(); }

    int Init() override {
        const int result = LoadAllServiceObjects();
        return result == 0 ? BundleObject::Init() : result;
    }

    void Fini() override {
        UnLoadAllServiceObjects();
        BundleObject::Fini();
    }
};

}  // namespace

ZO_BUNDLE(DomainBundle);
