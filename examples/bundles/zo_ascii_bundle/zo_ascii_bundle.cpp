// Serves the alarms as lines of text to upper systems. Its service is named in its
// svc.cfg and lives in a library of its own.
#include <bundlemgr/kit.h>

namespace {

class AsciiBundle : public zo::ServiceBundle {
public:
    // After the bundles whose services it uses, and ended before them.
    AsciiBundle() : ServiceBundle("zo_ascii_bundle", 30) {}
};

}  // namespace

ZO_BUNDLE(AsciiBundle);
