#include "platform/filesizesignal.h"

#include <ctime>

#include <pthread.h>
#include <sys/resource.h>

namespace NS_BUNDLEMGR1 {

namespace {

bool IsFileSizeLimited() {
    rlimit limit{};
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
}

sigset_t FileSizeSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGXFSZ);
    return signals;
}

}  // namespace

FileSizeSignalBlock::FileSizeSignalBlock() : m_bBlocked(false) {
    if (!IsFileSizeLimited()) return;
    const sigset_t signals = FileSizeSignal();
    sigset_t before;
    if (pthread_sigmask(SIG_BLOCK, &signals, &before) != 0) return;
    m_bBlocked = sigismember(&before, SIGXFSZ) == 0;
}

FileSizeSignalBlock::~FileSizeSignalBlock() {
    if (!m_bBlocked) return;
    const sigset_t signals = FileSizeSignal();
    const timespec atOnce{};
    while (sigtimedwait(&signals, nullptr, &atOnce) == SIGXFSZ) {
    }
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

}  // namespace NS_BUNDLEMGR1
