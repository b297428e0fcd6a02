// Serves the alarms as lines of text to upper systems. Its service is named in its
// svc.cfg and lives in a library of its own.
#include <bundlemgr/bundle.h>

namespace {

class AsciiBundle : public NS_BUNDLEMGR1::BundleObject {
public:
    std::string GetName() override { return "zo_ascii_bundle"; }

    // After the bundles whose services it uses, and ended before them.
    int GetBundleOrder() override { return 30; }

    // Nobody calls it: it listens to the alarm table.
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

ZO_BUNDLE(AsciiBundle);
