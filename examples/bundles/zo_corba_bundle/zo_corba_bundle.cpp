// The CORBA side of the agent: an ORB with the agent's object, its name in the naming
// service, and a supplier of an event channel.
#include <bundlemgr/bundle.h>

#include "corbainterfaces.h"

using NS_BUNDLEMGR1::BundleObject;

namespace {

class CorbaBundle : public BundleObject {
public:
    std::string GetName() override { return corba_bundle::BUNDLE; }
    // Last: what it serves is there before it and goes after it.
    int GetBundleOrder() override { return 40; }
    void SetInterface() override {}
    int Init() override {
        const int result = LoadAllServiceObjects();
        return result != 0 ? result : BundleObject::Init();
    }
    void Fini() override {
        UnLoadAllServiceObjects();
        BundleObject::Fini();
    }
};

}  // namespace

ZO_BUNDLE(CorbaBundle);
