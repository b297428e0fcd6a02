// A clock that stands where a test puts it, for the whole process.
//
// This program's own gettimeofday and time come before the C library's. Include it in
// one source file of a program only.
#pragma once

#include <sys/time.h>

#include <atomic>
#include <ctime>

namespace test {

class Clock {
public:
    /// Stops the clock.
    static void Set(long seconds, long microseconds = 0) {
        Seconds() = seconds;
        Microseconds() = microseconds;
        State() = kStopped;
    }

    /// Each look at the clock is a second later than the one before.
    static void Hurry(long seconds) {
        Set(seconds);
        State() = kHurrying;
    }

    /// Makes gettimeofday fail.
    static void Break() { State() = kBroken; }

    /// Back to the real time.
    static void Reset() { State() = kRunning; }

    static int GetTimeOfDay(timeval& now) {
        if (State() == kBroken) return -1;
        if (State() == kHurrying) {
            now = timeval{Seconds()++, Microseconds()};
            return 0;
        }
        if (State() == kStopped) {
            now = timeval{Seconds(), Microseconds()};
            return 0;
        }
        timespec real{};
        clock_gettime(CLOCK_REALTIME, &real);
        now = timeval{real.tv_sec, real.tv_nsec / 1000};
        return 0;
    }

private:
    enum Running { kRunning, kStopped, kHurrying, kBroken };

    // Functions, since the clock may be asked before this program's own static objects
    // are made.
    static std::atomic<Running>& State() {
        static std::atomic<Running> state{kRunning};
        return state;
    }
    static std::atomic<long>& Seconds() {
        static std::atomic<long> seconds{0};
        return seconds;
    }
    static std::atomic<long>& Microseconds() {
        static std::atomic<long> microseconds{0};
        return microseconds;
    }
};

}  // namespace test

extern "C" {

__attribute__((visibility("default"))) int gettimeofday(timeval* now, void*) noexcept {
    return test::Clock::GetTimeOfDay(*now);
}

__attribute__((visibility("default"))) time_t time(time_t* result) noexcept {
    timeval now{-1, 0};
    test::Clock::GetTimeOfDay(now);
    if (result != nullptr) *result = now.tv_sec;
    return now.tv_sec;
}
}
