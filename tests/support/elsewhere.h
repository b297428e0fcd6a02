// What another thread can do while, or after, this one did something.
#pragma once

#include <future>
#include <memory>
#include <thread>
#include <utility>

#include "support/wait.h"

namespace test {

/// An action on a thread of its own.
///
/// One that never finishes is left alone, so that the test fails instead of hanging.
class Elsewhere {
public:
    template <class Action>
    explicit Elsewhere(Action action) {
        std::packaged_task<void()> task(std::move(action));
        m_finished = task.get_future();
        m_thread = std::thread(std::move(task));
    }
    ~Elsewhere() {
        if (Finishes()) {
            m_thread.join();
        } else {
            m_thread.detach();
        }
    }
    Elsewhere(const Elsewhere&) = delete;
    Elsewhere& operator=(const Elsewhere&) = delete;

    /// @return whether the action is over before the deadline
    bool Finishes(std::chrono::milliseconds deadline = kDeadline) const {
        return m_finished.wait_for(deadline) == std::future_status::ready;
    }

private:
    std::future<void> m_finished;
    std::thread m_thread;
};

/// @return whether another thread can do this, that is, finds no lock held
template <class Action>
bool CanBeDoneElsewhere(Action action) {
    return Elsewhere(std::move(action)).Finishes();
}

}  // namespace test
