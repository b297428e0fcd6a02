// What the host is at, and since when.
#pragma once

#include <chrono>
#include <mutex>
#include <string>

/// Names the step that a host which does not stop is waiting for. Thread-safe.
class Progress {
public:
    /// A step begins, unless it is the present one.
    /// @param step completes "waiting for ..."
    void Begin(const std::string& step);

    /// @return "waiting for <step> since 2024-03-01 08:05:09 (12 s)", in local time
    std::string Text() const;

private:
    mutable std::mutex m_mutex;  // guards all that follows
    std::string m_step;
    std::chrono::system_clock::time_point m_since;  // for the reader
    std::chrono::steady_clock::time_point m_begin;  // for counting
};
