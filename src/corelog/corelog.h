// The library's own way to its log.
#pragma once

#include <atomic>

#include <bundlemgr/log.h>

#include "src/corelog/ownlogproxy.h"

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

    /// Writes one record with its position. A proxy that is not of this library's own make is
    /// told the position first, and gets the format as it stands.
    template <class... Args>
    void Print(unsigned long line, int level, const char* format, Args... args) {
        LogProxy* const proxy = Proxy();
        OwnLogProxy* const own = m_pOwn.load(std::memory_order_relaxed);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        if (proxy == own) {
            PrintAt(own, line, level, format, args...);
        } else {
            proxy->SetPosition(m_sourceFile, line);
            proxy->Printf(level, format, args...);
        }
#pragma GCC diagnostic pop
    }

    /// Creates what the first record of the process would create under ACE's static-object
    /// lock. To be called before any lock that comes later in the lock order, if a record
    /// may be written under it.
    void Prepare();

    /// @return the core proxy of the bundle manager's log proxy manager, or a
    ///         `DefaultLogProxy` where there is none; never null
    LogProxy* Proxy();

private:
    void PrintAt(OwnLogProxy* proxy, unsigned long line, int level, const char* format, ...)
        __attribute__((format(printf, 5, 6)));
    LogProxy* FetchProxy();
    LogProxy* FetchFromManager();

    const char* const m_sourceFile;
    std::atomic<OwnLogProxy*> m_pOwn{nullptr};  // the cached one, if it is; set before it
    std::atomic<LogProxy*> m_pCache{nullptr};
};

}  // namespace NS_BUNDLEMGR1
