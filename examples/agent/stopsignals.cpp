#include "stopsignals.h"

#include <exception>
#include <string>

#include <poll.h>
#include <unistd.h>

namespace {

// A start that takes longer after it was asked to stop says what holds it up.
constexpr std::chrono::seconds kPatience(2);

constexpr timespec kInterval{0, 250 * 1000 * 1000};

// The stream may be locked by a thread that hangs, and its reader may have stopped reading:
// this thread must go on hearing signals.
void Print(const std::string& text) {
    pollfd standardError{STDERR_FILENO, POLLOUT, 0};
    if (poll(&standardError, 1, 0) != 1 || (standardError.revents & POLLOUT) == 0) return;
    const std::string line = "zo_agent: " + text + "\n";
    const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
    static_cast<void>(written);  // where should that be told?
}

}  // namespace

StopSignals::StopSignals(const Progress& progress, LogKeeper& log, int status)
    : m_progress(progress), m_log(log), m_status(status) {
    sigemptyset(&m_signals);
    sigaddset(&m_signals, SIGINT);
    sigaddset(&m_signals, SIGTERM);
    sigaddset(&m_signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
    // A peer that closes its connection is a failed write, and no reason to die.
    signal(SIGPIPE, SIG_IGN);
    m_thread = std::thread([this] { Watch(); });
}

StopSignals::~StopSignals() {
    m_ending = true;
    pthread_kill(m_thread.native_handle(), SIGHUP);  // ends its waiting
    m_thread.join();
}

bool StopSignals::Requested() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_requested;
}

void StopSignals::Wait(std::chrono::seconds duration) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_phase = Phase::RUNNING;
    const auto requested = [this] { return m_requested; };
    if (duration.count() < 0) {
        m_changed.wait(lock, requested);
    } else {
        m_changed.wait_for(lock, duration, requested);
    }
}

void StopSignals::BeginStop() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_phase = Phase::STOPPING;
}

bool StopSignals::IsStarting() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_phase == Phase::STARTING;
}

void StopSignals::Watch() {
    for (;;) {
        const int number = Fetch();
        if (m_ending) return;
        Take(number);
        TellWhatIsDue();
    }
}

void StopSignals::TellWhatIsDue() {
    try {
        const std::string loss = m_log.Loss();
        if (!loss.empty()) Print(loss);
        if (Clock::now() < m_tellAt) return;
        m_tellAt = Clock::time_point::max();
        if (IsStarting()) Tell("");
    } catch (const std::exception&) {
        // No memory: the next round may have some.
    }
}

// -1 when there is none in time.
int StopSignals::Fetch() const {
    return sigtimedwait(&m_signals, nullptr, &kInterval);
}

void StopSignals::Take(int number) {
    // Waits for a record that is being written: a disk that hangs makes this thread deaf.
    if (number == SIGHUP) m_log.OpenNewFile();
    if (number == SIGINT || number == SIGTERM) TakeStop();
}

void StopSignals::TakeStop() {
    ++m_stops;
    const Phase phase = Request();
    if (m_stops > 2) {
        Tell("; the process ends now");
        _exit(m_status);
    }
    if (m_stops == 2) {
        Tell("; one more signal ends the process");
    } else if (phase == Phase::STOPPING) {
        Tell("");
    } else if (phase == Phase::STARTING) {
        m_tellAt = Clock::now() + kPatience;
    }
}

// The phase in which the request came.
StopSignals::Phase StopSignals::Request() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_requested = true;
    m_changed.notify_all();
    return m_phase;
}

void StopSignals::Tell(const char* more) const {
    try {
        Print(m_progress.Text() + more);
    } catch (const std::exception&) {
        // No memory to tell it; what it was about goes on all the same.
    }
}
