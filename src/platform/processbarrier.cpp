#include "src/platform/processbarrier.h"

#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace NS_BUNDLEMGR1 {

// While the library loads. Before that, nobody is spared anything.
const bool ProcessBarrier::s_isThere = Register();

namespace {

bool Command(int command) {
    return syscall(SYS_membarrier, command, 0, 0) == 0;
}

}  // namespace

bool ProcessBarrier::Register() {
    return Command(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED);
}

void ProcessBarrier::Cross() {
    if (!s_isThere || Command(MEMBARRIER_CMD_PRIVATE_EXPEDITED)) return;
    // In a child of fork, on systems where it does not inherit that.
    if (Register()) Command(MEMBARRIER_CMD_PRIVATE_EXPEDITED);
}

}  // namespace NS_BUNDLEMGR1
