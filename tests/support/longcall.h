// A call that lasts until it is let go.
#pragma once

#include <atomic>

#include "support/wait.h"

namespace test {

/// What a handler, a function or a round does so that something else meets it on its way.
class LongCall {
public:
    /// Stays here, on any number of threads, until `Release`.
    void Stay() {
        ++m_inside;
        WaitFor([this] { return m_released.load(); });
        --m_inside;
    }

    /// @return whether so many threads are here before the deadline
    bool AwaitInside(int threads = 1) {
        return WaitFor([&] { return m_inside == threads; });
    }
    void Release() { m_released = true; }
    bool IsInside() const { return m_inside > 0; }

private:
    std::atomic<int> m_inside{0};
    std::atomic<bool> m_released{false};
};

}  // namespace test
