// A bundle without services that publishes an interface of its own.
#include <string>

#include <bundlemgr/bundle.h>

namespace {

class Greeting : public NS_BUNDLEMGR1::ServiceInterface {
public:
    std::string GetDescription() override { return "greetings from consumer_bundle"; }
    void* GetImplementation() override { return this; }
};

class ConsumerBundle : public NS_BUNDLEMGR1::BundleObject {
public:
    std::string GetName() override { return "consumer_bundle"; }
    int GetBundleOrder() override { return 10; }
    void SetInterface() override { m_pInterface = new Greeting; }

    int Init() override {
        SetInterface();
        BundleObject::Init();
        return LoadAllServiceObjects();
    }

    void Fini() override {
        UnLoadAllServiceObjects();
        RemoveInterface();
        BundleObject::Fini();
    }
};

}  // namespace

ZO_BUNDLE(ConsumerBundle);
