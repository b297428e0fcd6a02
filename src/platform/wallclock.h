// The time of day.
#pragma once

#include <ace/Time_Value.h>

namespace NS_BUNDLEMGR1 {

/// @return the wall-clock time; seconds -1 when the clock cannot be read
ACE_Time_Value WallClock();

}  // namespace NS_BUNDLEMGR1
