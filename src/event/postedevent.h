// What is kept of an event until its turn comes.
#pragma once

#include <bundlemgr/event.h>

namespace NS_BUNDLEMGR1 {

/// An event as it was posted; a plain value, which owns nothing.
struct PostedEvent {
    int eventId;
    int extra;
    LightEventParam* param;
    bool isParamDeleted;  ///< After the last handler; the flag as it was when the event was posted.
};

}  // namespace NS_BUNDLEMGR1
