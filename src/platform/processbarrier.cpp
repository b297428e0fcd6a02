#include "src/platform/processbarrier.h"

#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace NS_BUNDLEMGR1 {

namespace {

bool Command(int command) {
    return syscall(SYS_membarrier, command, 0, 0) == 0;
}

bool Register() {
    return Command(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED);
}

// A store is in sight of all threads after less than a thousandth of this.
void AwaitStores() {
    constexpr std::chrono::milliseconds kPause(1);
    const auto end = std::chrono::steady_clock::now() + kPause;
    while (std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(kPause);
}

}  // namespace

// While the library loads. Before that, nobody is spared anything.
std::atomic<bool> ProcessBarrier::s_isThere{Register()};
const bool ProcessBarrier::s_wasThere = s_isThere.load();

void ProcessBarrier::Cross() {
    if (!s_wasThere || Command(MEMBARRIER_CMD_PRIVATE_EXPEDITED)) return;
    // In a child of fork, on systems where it does not inherit that.
    if (Register() && Command(MEMBARRIER_CMD_PRIVATE_EXPEDITED)) return;
    // A filter of the host's, or no memory. Those who have seen the flag just before may still be
    // storing without a barrier, now and at the next call.
    s_isThere.store(false);
    AwaitStores();
}

}  // namespace NS_BUNDLEMGR1
