// Tells that the calling thread is writing log records.
#pragma once

#include "src/platform/writesignalblock.h"

namespace NS_BUNDLEMGR1 {

class LogProxyDebugInfoBufMgr;

/// While it lives, the calling thread writes records, under the log's locks. What the
/// writing itself gives birth to (the conversion of a time stamp may log) must not
/// come back for these locks, nor take one that others hold while they log.
class WritingScope {
public:
    /// @param buffer whose records are written
    explicit WritingScope(LogProxyDebugInfoBufMgr& buffer) { Current() = &buffer; }
    ~WritingScope() { Current() = nullptr; }
    WritingScope(const WritingScope&) = delete;
    WritingScope& operator=(const WritingScope&) = delete;

    static bool IsActive() { return Current() != nullptr; }

    /// @return whose records the calling thread is writing; null when it is not. It may be
    ///         on its way out, and no longer be `Instance`
    static LogProxyDebugInfoBufMgr* Buffer() { return Current(); }

private:
    static LogProxyDebugInfoBufMgr*& Current() {
        static thread_local LogProxyDebugInfoBufMgr* t_current = nullptr;
        return t_current;
    }

    WriteSignalBlock m_signalBlock{WriteSignalBlock::Target::RegularFile};
};

}  // namespace NS_BUNDLEMGR1
