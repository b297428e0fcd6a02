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

FileSizeSignalBlock::FileSizeSignalBlock() : m_bUnblock(false), m_bDiscard(false) {
    if (!IsFileSizeLimited()) return;
    const sigset_t signals = FileSizeSignal();
    sigset_t blocked;
    if (pthread_sigmask(SIG_BLOCK, &signals, &blocked) != 0) return;
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    m_bUnblock = sigismember(&blocked, SIGXFSZ) == 0;
    m_bDiscard = sigismember(&pending, SIGXFSZ) == 0;
}

FileSizeSignalBlock::~FileSizeSignalBlock() {
    const sigset_t signals = FileSizeSignal();
    const timespec atOnce{};
    while (m_bDiscard && sigtimedwait(&signals, nullptr, &atOnce) == SIGXFSZ) {
    }
    if (m_bUnblock) pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

}  // namespace NS_BUNDLEMGR1
