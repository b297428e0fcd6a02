// Waiting for a condition, with a deadline instead of a guess.
#pragma once

#include <chrono>
#include <thread>

namespace test {

constexpr std::chrono::seconds kDeadline(30);

/// @return whether `condition` came true before the deadline
template <class Condition>
bool WaitFor(Condition condition, std::chrono::milliseconds deadline = kDeadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

}  // namespace test
