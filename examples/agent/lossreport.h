// Telling that the log loses records, which it cannot tell itself.
#pragma once

#include <chrono>
#include <string>

#include <bundlemgr/log.h>

/// Finds the words for what the log says of its losses: when one begins, at most once a
/// minute, and when one is over of which that was said.
class LossReport {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// @param toldOtherwise whether it is known already that the log cannot be written
    explicit LossReport(bool toldOtherwise) : m_told(toldOtherwise) {}

    /// To be called every now and then.
    /// @return what is to be said, one line, or ""
    std::string Next(const NS_BUNDLEMGR1::LogLoss& loss, TimePoint now);

private:
    std::string Begin(const NS_BUNDLEMGR1::LogLoss& loss, TimePoint now);

    bool m_told;                       // a loss is under way, and that was said
    unsigned long long m_counted = 0;  // records of losses that were said to be over
    TimePoint m_next{};                // when a beginning may be told again
};
