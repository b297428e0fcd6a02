// The foundation of the agent: the alarm table and the heartbeat. Its services are
// named in its svc.cfg; each lives in a library of its own.
#include <bundlemgr/bundle.h>

namespace {

class BaseBundle : public NS_BUNDLEMGR1::BundleObject {
public:
    std::string GetName() override { return "zo_base_bundle"; }

    // Before all others, since they use its services, and ended after them.
    int GetBundleOrder() override { return 10; }

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

ZO_BUNDLE(BaseBundle);
