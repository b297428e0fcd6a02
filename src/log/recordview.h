// A log record, without texts of its own.
#pragma once

#include <string_view>

#include <ace/Time_Value.h>

#include <bundlemgr/log.h>

namespace NS_BUNDLEMGR1 {

/// A record on its way from the call to the file. Its texts are somebody else's; none of
/// them has a NUL in it.
struct RecordView {
    RecordView() = default;

    /// Each text ends at its first NUL.
    explicit RecordView(const DebugInfo& info)
        : level(info.level),
          time(info.time),
          thread(info.thread.c_str()),
          bundle(info.bundle.c_str()),
          service(info.service.c_str()),
          text(info.text.c_str()),
          file(info.file.c_str()),
          line(info.line) {}

    int level = 0;
    ACE_Time_Value time;
    std::string_view thread;
    std::string_view bundle;
    std::string_view service;
    std::string_view text;
    std::string_view file;
    unsigned long line = 0;
};

}  // namespace NS_BUNDLEMGR1
