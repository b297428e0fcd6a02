// A log record, without texts of its own.
#pragma once

#include <string_view>

#include <ace/Time_Value.h>

namespace NS_BUNDLEMGR1 {

/// A record on its way from the call to the file. Its texts are somebody else's.
struct RecordView {
    int level = 0;
    ACE_Time_Value time;
    std::string_view thread;
    std::string_view source;  ///< See `RecordSource`.
    unsigned long line = 0;
    std::string_view text;
};

}  // namespace NS_BUNDLEMGR1
