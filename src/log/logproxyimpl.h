// The log proxy that writes to the log file.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>

#include <bundlemgr/detail/mutex.h>
#include <bundlemgr/log.h>

#include "src/corelog/ownlogproxy.h"

namespace NS_BUNDLEMGR1 {

class RecordSource;
struct RecordView;

/// Turns each call into a record and hands it to the process-wide
/// `LogProxyDebugInfoBufMgr`, printing its text on standard output as well.
///
/// Thread safety: as `LogProxy`. The names and the position are copied under a lock, so a
/// record carries an old or a new value, never a torn one. All proxies share a few of these
/// locks, which a fork can take.
class LogProxyImpl : public OwnLogProxy {
public:
    explicit LogProxyImpl(const std::string& name);
    ~LogProxyImpl() override;

    void Write(int level, const char* text) override;
    void WriteText(const char* text) override;
    void Printf(int level, const char* format, ...) override __attribute__((format(printf, 3, 4)));
    void PrintfText(const char* format, ...) override __attribute__((format(printf, 2, 3)));
    bool IsLevelEnabled(int level) override;
    bool DisableLevel(int level) override;
    bool EnableLevel(int level) override;
    bool DisableAllLevels() override;
    bool EnableAllLevels() override;
    void FlushDebugInfo() override;
    bool SetDebugOutputMode(int mode) override;
    void SetPosition(const char* file, unsigned long line) override;
    void SetBundleName(const char* name) override;
    void SetServiceName(const char* name) override;
    std::string GetName() const override;
    void VPrintfAt(const char* file, unsigned long line, int level, const char* format, va_list args) override
        __attribute__((format(printf, 5, 0)));

    /// @name Around fork
    /// No name and no position is in the middle of a change when the child is made.
    /// @{
    static void BeforeFork();
    static void AfterFork();
    /// @}

private:
    struct Position {
        const char* file;
        unsigned long line;
    };

    void WriteAt(const Position* position, int level, std::string_view text);
    bool TakeSource(const Position* position, RecordSource& source, RecordView& record);
    void Replace(std::string& text, const char* newText);
    static bool Format(char* buffer, const char* format, va_list args) __attribute__((format(printf, 2, 0)));

    const std::string m_strName;
    std::string m_strBundleName ZO_GUARDED_BY(m_positionMutex);
    std::string m_strServiceName ZO_GUARDED_BY(m_positionMutex);
    std::string m_strFileName ZO_GUARDED_BY(m_positionMutex);
    unsigned long m_nLine ZO_GUARDED_BY(m_positionMutex);
    std::atomic<std::uint64_t> m_nLevelMask;  // bit n set: level n is enabled
    const bool m_bEcho;                       // print each text on standard output, too
    detail::Mutex& m_positionMutex;
};

}  // namespace NS_BUNDLEMGR1
