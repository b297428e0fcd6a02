// What the agent knows of its network elements: the feed of their alarms, and counts of
// them. Its services are named in its svc.cfg; each lives in a library of its own.
#include <bundlemgr/kit.h>

namespace {

class DomainBundle : public zo::ServiceBundle {
public:
    // After zo_base_bundle, whose services it uses.
    DomainBundle() : ServiceBundle("zo_domain_bundle", 20) {}
};

}  // namespace

ZO_BUNDLE(DomainBundle);
