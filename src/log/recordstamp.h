// The two stamps that every record carries.
#pragma once

#include <string>

#include <ace/Time_Value.h>

namespace NS_BUNDLEMGR1 {

/// @return the wall-clock time; seconds -1 when the clock cannot be read
ACE_Time_Value RecordTime();

/// @return "Thread " and the calling thread's id, cut to 32 bits and signed
std::string RecordThread();

}  // namespace NS_BUNDLEMGR1
