// The thread of a service.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include <bundlemgr/export.h>

#include "servicelog.h"

namespace alarms {

/// A thread that works in rounds with a pause after each, and that can be stopped at
/// any time.
///
///     ServiceThread m_thread{m_log};                // the last member
///     m_thread.Start([this] { return Round(); });   // in init
///     m_thread.Stop();                              // in ExitThreads, fini and the destructor
///
/// The function does one round of work and returns how long to pause before the next.
/// It must not wait for what the stopping thread may hold (in a service's fini: the
/// locks of the bundle manager and of the bundle), nor stop the thread itself. An
/// exception from it is logged, and the next round follows after a second.
///
/// Thread safety: `Start` once; `Stop` may be called by any thread, any number of times.
class ZO_PLUGIN_EXPORT ServiceThread {
public:
    using Round = std::function<std::chrono::milliseconds()>;

    /// @param log receives the reports; must live as long as the thread
    explicit ServiceThread(ServiceLog& log) : m_log(log) {}
    ~ServiceThread();
    ServiceThread(const ServiceThread&) = delete;
    ServiceThread& operator=(const ServiceThread&) = delete;

    /// @throws std::system_error when the system has no thread to give, std::bad_alloc
    ///         when there is no memory for one: out of `init`, that is a service that
    ///         cannot be initialised
    void Start(Round round);

    /// Ends the pause, asks the round under way to end, and returns when the thread has
    /// ended. Without a thread it does nothing.
    void Stop();

    /// Ends the pause; during a round, the pause after it.
    void Wake();

    /// For long rounds: whether the thread has been asked to end.
    bool Stopping();

private:
    void Run(const Round& round);
    std::chrono::milliseconds OneRound(const Round& round);

    ServiceLog& m_log;
    std::mutex m_mutex;  // guards the two flags
    std::condition_variable m_wake;
    bool m_stopping = false;
    bool m_woken = false;
    std::mutex m_joinMutex;  // one thread at a time joins
    std::thread m_thread;
};

}  // namespace alarms
