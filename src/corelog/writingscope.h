// Tells that the calling thread is writing log records.
#pragma once

namespace NS_BUNDLEMGR1 {

class LogProxyDebugInfoBufMgr;

/// While it lives, the calling thread writes records and holds the log's locks. The writing
/// may itself cause a record (the conversion of a time stamp may log), which must not ask for
/// these locks again, nor for one that other threads hold while they log.
class WritingScope {
public:
    /// @param buffer whose records are written
    explicit WritingScope(LogProxyDebugInfoBufMgr& buffer) { Current() = &buffer; }
    ~WritingScope() { Current() = nullptr; }
    WritingScope(const WritingScope&) = delete;
    WritingScope& operator=(const WritingScope&) = delete;

    static bool IsActive() { return Current() != nullptr; }

    /// @return the buffer whose records the calling thread is writing, or null. It may be
    ///         ending already, and no longer be `Instance`
    static LogProxyDebugInfoBufMgr* Buffer() { return Current(); }

private:
    static LogProxyDebugInfoBufMgr*& Current() {
        static thread_local LogProxyDebugInfoBufMgr* t_current = nullptr;
        return t_current;
    }
};

}  // namespace NS_BUNDLEMGR1
