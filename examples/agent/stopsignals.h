// Ending the agent by signals.
#pragma once

#include <chrono>

#include <signal.h>

/// SIGINT and SIGTERM as a request to stop. They are blocked in every thread and fetched
/// by the main thread, so no handler ever interrupts anybody. SIGPIPE is ignored.
///
/// Made before the first thread is, since threads inherit what is blocked.
class StopSignals {
public:
    StopSignals();

    /// @return whether a stop has been requested up to now
    bool Requested();

    /// Returns when a stop is requested, or after `duration`; a negative one has no end.
    void Wait(std::chrono::seconds duration);

private:
    bool Fetch(const timespec* timeout);

    sigset_t m_signals{};
    bool m_requested = false;
};
