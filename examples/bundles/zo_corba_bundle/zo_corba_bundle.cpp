// The CORBA side of the agent: an ORB with the agent's object, its name in the naming
// service, and a supplier of an event channel.
#include <bundlemgr/kit.h>

#include "corbainterfaces.h"

namespace {

class CorbaBundle : public zo::ServiceBundle {
public:
    // Last: what it serves is there before it and goes after it.
    CorbaBundle() : ServiceBundle(corba_bundle::BUNDLE, 40) {}
};

}  // namespace

ZO_BUNDLE(CorbaBundle);
