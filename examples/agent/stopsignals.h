// Ending the agent by signals.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <signal.h>

#include "logkeeper.h"
#include "progress.h"

/// SIGINT and SIGTERM as a request to stop. They are blocked in every thread and fetched
/// by a thread of this object, so no handler ever interrupts anybody, and they are heard
/// while the main thread is held up. SIGPIPE is ignored.
///
/// The first signal asks for the stop. While the agent starts, which cannot be broken off,
/// what it waits for is told on standard error if that takes long. So it is at the second
/// signal, or at the first when the stop is under way. The third ends the process.
///
/// SIGHUP makes the log go on in a new file. What the log loses is told on standard error,
/// too, since this thread comes by all the time.
///
/// Made before the first other thread is, since threads inherit what is blocked.
class StopSignals {
public:
    /// @param progress what to tell; must live as long
    /// @param log      must live as long
    /// @param status   exit status of the process that the third signal ends
    /// @throws std::system_error when there is no thread to be had
    StopSignals(const Progress& progress, LogKeeper& log, int status);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /// @return whether a stop has been requested up to now
    bool Requested();

    /// The start is over. Returns when a stop is requested, or after `duration`; a negative
    /// one has no end.
    void Wait(std::chrono::seconds duration);

    /// The stop is under way.
    void BeginStop();

private:
    enum class Phase { STARTING, RUNNING, STOPPING };
    using Clock = std::chrono::steady_clock;

    void Watch();
    int Fetch() const;
    void Take(int number);
    void TellWhatIsDue();
    void TakeStop();
    Phase Request();
    bool IsStarting();
    void Tell(const char* more) const;

    const Progress& m_progress;
    LogKeeper& m_log;
    const int m_status;
    sigset_t m_signals{};
    std::atomic<bool> m_ending{false};

    std::mutex m_mutex;  // guards the two that follow
    std::condition_variable m_changed;
    Phase m_phase = Phase::STARTING;
    bool m_requested = false;

    // Of the watching thread alone.
    int m_stops = 0;
    Clock::time_point m_tellAt = Clock::time_point::max();  // what holds the start up

    std::thread m_thread;
};
