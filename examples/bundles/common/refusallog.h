// Keeps those who are refused from filling the log.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <unordered_map>

#include <bundlemgr/export.h>

namespace alarms {

/// Who has been refused of late: of each address one refusal a minute is told.
///
///     if (m_refusals.ShouldTell(host, std::chrono::steady_clock::now())) ZO_ERROR(m_log, ...);
///
/// It remembers `kMaxAddresses`. While all of these are less than a minute old, those
/// of others are not told: the log grows by so many records a minute at most, whoever
/// tries.
///
/// Thread-safe.
class ZO_PLUGIN_EXPORT RefusalLog {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    static constexpr std::size_t kMaxAddresses = 4096;
    static constexpr std::chrono::seconds kPause{60};

    /// @param address who is refused, as it is to be told apart: without the port
    /// @param now     the time of the refusal
    /// @return whether to write a record of it; also false when there is no memory to
    ///         remember it
    bool ShouldTell(const std::string& address, TimePoint now) noexcept;

private:
    void Forget(TimePoint now);

    std::mutex m_mutex;  // guards what follows
    std::unordered_map<std::string, TimePoint> m_told;
    TimePoint m_nextForget{};  // no entry is due before
};

}  // namespace alarms
