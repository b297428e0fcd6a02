// Memory that runs out for a thread, at the request that a test says.
//
// This program's own operators new come before the C++ library's. Include it in one source
// file of a program only.
#pragma once

#include "support/replacednew.h"

namespace test {

/// While it lives, the n-th request of this thread for memory fails.
class MemoryFault {
public:
    enum Duration { kOnce, kFromThenOn };

    /// @param n counted from 1
    explicit MemoryFault(long n, Duration duration = kOnce) { State() = {n, duration == kFromThenOn, 0}; }
    ~MemoryFault() { State().next = kNever; }
    MemoryFault(const MemoryFault&) = delete;
    MemoryFault& operator=(const MemoryFault&) = delete;

    /// @return how many requests have failed since the last one of these was made
    static long Failed() { return State().failed; }

    static bool Strikes() {
        Thread& thread = State();
        if (thread.next == kNever) return false;
        if (thread.next > 1) {
            --thread.next;
            return false;
        }
        if (!thread.goesOn) thread.next = kNever;
        ++thread.failed;
        return true;
    }

private:
    static constexpr long kNever = -1;

    struct Thread {
        long next = kNever;
        bool goesOn = false;
        long failed = 0;
    };

    static Thread& State() {
        static thread_local Thread thread;
        return thread;
    }
};

}  // namespace test

bool test::RefusesMemory() noexcept {
    return MemoryFault::Strikes();
}
