// The log proxy that writes to the log file.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>

#include <bundlemgr/log.h>

#include "src/corelog/ownlogproxy.h"
#include "src/log/sourceposition.h"

namespace NS_BUNDLEMGR1 {

/// Turns each call into a record and hands it to the process-wide
/// `LogProxyDebugInfoBufMgr`, printing its text on standard output as well.
///
/// Thread safety: as `LogProxy`. A record carries old or new names and an old or a new position,
/// never a torn one.
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

private:
    template <class TakeSource>
    void WriteRecord(int level, std::string_view text, TakeSource takeSource);
    static bool Format(char* buffer, const char* format, va_list args) __attribute__((format(printf, 2, 0)));

    const std::string m_strName;
    SourcePosition m_position;
    std::atomic<std::uint64_t> m_nLevelMask;  // bit n set: level n is enabled
    const bool m_bEcho;                       // print each text on standard output, too
};

}  // namespace NS_BUNDLEMGR1
