// The foundation of the agent: the alarm table and the heartbeat. Its services are
// named in its svc.cfg; each lives in a library of its own.
#include <bundlemgr/kit.h>

namespace {

class BaseBundle : public zo::ServiceBundle {
public:
    // Before all others, since they use its services, and ended after them.
    BaseBundle() : ServiceBundle("zo_base_bundle", 10) {}
};

}  // namespace

ZO_BUNDLE(BaseBundle);
