#include "stopsignals.h"

StopSignals::StopSignals() {
    sigemptyset(&m_signals);
    sigaddset(&m_signals, SIGINT);
    sigaddset(&m_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
    // A peer that closes its connection is a failed write, and no reason to die.
    signal(SIGPIPE, SIG_IGN);
}

bool StopSignals::Requested() {
    const timespec now{};
    return Fetch(&now);
}

void StopSignals::Wait(std::chrono::seconds duration) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + duration;
    if (duration.count() < 0) {
        while (!Fetch(nullptr)) {
        }
        return;
    }
    for (Clock::duration left = duration; left >= Clock::duration::zero(); left = end - Clock::now()) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(left - seconds);
        timespec timeout{};
        timeout.tv_sec = static_cast<time_t>(seconds.count());
        timeout.tv_nsec = static_cast<long>(rest.count());
        if (Fetch(&timeout)) return;
    }
}

// A signal that is not ours, or none in time, ends the waiting as well: the callers ask
// again.
bool StopSignals::Fetch(const timespec* timeout) {
    if (m_requested) return true;
    m_requested =
        (timeout != nullptr ? sigtimedwait(&m_signals, nullptr, timeout) : sigwaitinfo(&m_signals, nullptr)) > 0;
    return m_requested;
}
