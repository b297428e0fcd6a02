// Tells that the calling thread is writing log records.
#pragma once

#include "platform/writesignalblock.h"

namespace NS_BUNDLEMGR1 {

/// While it lives, the calling thread writes records, under the log's locks. What the
/// writing itself gives birth to (the conversion of a time stamp may log) must not
/// come back for these locks, nor take one that others hold while they log.
class WritingScope {
public:
    WritingScope() { Active() = true; }
    ~WritingScope() { Active() = false; }
    WritingScope(const WritingScope&) = delete;
    WritingScope& operator=(const WritingScope&) = delete;

    static bool IsActive() { return Active(); }

private:
    static bool& Active() {
        static thread_local bool t_active = false;
        return t_active;
    }

    WriteSignalBlock m_signalBlock{WriteSignalBlock::Target::RegularFile};
};

}  // namespace NS_BUNDLEMGR1
