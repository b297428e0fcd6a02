// Waiting for what no condition variable tells.
#pragma once

#include <chrono>
#include <thread>

namespace NS_BUNDLEMGR1 {

/// Returns when `condition` holds, looked at again and again: closely at first, since most
/// of what is waited for is nearly over, then once a millisecond.
template <class Condition>
void WaitUntil(Condition condition) {
    constexpr int kYields = 64;
    constexpr std::chrono::milliseconds kPause(1);
    for (int i = 0; !condition(); ++i) {
        if (i < kYields) {
            std::this_thread::yield();
        } else {
            std::this_thread::sleep_for(kPause);
        }
    }
}

}  // namespace NS_BUNDLEMGR1
