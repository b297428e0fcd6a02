// The library's own way to its log.
#pragma once

#include <atomic>
#include <cstdarg>

#include <bundlemgr/log.h>

namespace NS_BUNDLEMGR1 {

/// The core log proxy ("BundleMgrCore") as one source file of the library sees it:
/// a static object of that file, named after it, that caches the proxy.
///
///     CoreLog g_log("bundlemgrimpl");
///     g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Error: Load Bundle %s failed!\n", name);
///
/// Constant-initialised and never destroyed, so it serves static constructors and
/// destructors, too. Throws nothing: without memory, a message is printed on standard
/// output as a `DefaultLogProxy` does it, and counted as lost. Thread-safe.
class CoreLog {
public:
    constexpr explicit CoreLog(const char* sourceFile) noexcept : m_sourceFile(sourceFile) {}

    /// Writes one record with its position.
    void Print(unsigned long line, int level, const char* format, ...) __attribute__((format(printf, 4, 5)));
    void VPrint(unsigned long line, int level, const char* format, va_list args) __attribute__((format(printf, 4, 0)));

    /// Creates what the first record of the process would create under ACE's static-object
    /// lock. To be called before any lock that comes later in the lock order, if a record
    /// may be written under it.
    void Prepare();

    /// @return the core proxy of the bundle manager's log proxy manager, or a
    ///         `DefaultLogProxy` where there is none; never null
    LogProxy* Proxy();

private:
    LogProxy* FetchProxy();
    LogProxy* FetchFromManager();

    const char* const m_sourceFile;
    std::atomic<LogProxy*> m_pCache{nullptr};
};

}  // namespace NS_BUNDLEMGR1
