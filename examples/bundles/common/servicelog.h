// The log of a service, with its names filled in.
#pragma once

#include <cstdarg>

#include <bundlemgr/log.h>

namespace alarms {

/// Each service has a log proxy of its own, named after it, so that the names in its
/// records are always its own.
///
///     ServiceLog m_log{"zo_base_bundle", "AlarmSvc", "alarmsvc"};
///     m_log.Info(__LINE__, "%zu alarms", count);
///
/// A line end is added to each record. One for which there is no memory is lost: nothing
/// is thrown, so that a service can log wherever it is. Thread-safe.
class ZO_PLUGIN_EXPORT ServiceLog {
public:
    /// @param bundle     name of the bundle
    /// @param service    name of the service
    /// @param sourceFile bare name of the source file; must live as long as the log
    ServiceLog(const char* bundle, const char* service, const char* sourceFile);

    void Error(unsigned long line, const char* format, ...) __attribute__((format(printf, 3, 4)));
    void Info(unsigned long line, const char* format, ...) __attribute__((format(printf, 3, 4)));

private:
    void Record(int level, unsigned long line, const char* format, va_list arguments) noexcept;

    NS_BUNDLEMGR1::LogProxy* const m_proxy;  // lives until the process ends
    const char* const m_sourceFile;
};

}  // namespace alarms
