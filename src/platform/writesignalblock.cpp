#include "src/platform/writesignalblock.h"

#include <cerrno>
#include <ctime>

#include <pthread.h>

namespace NS_BUNDLEMGR1 {

namespace {

constexpr int kSignals[] = {SIGXFSZ, SIGPIPE};

}  // namespace

WriteSignalBlock::WriteSignalBlock() : m_bBlocked(false), m_wereOpen(), m_ours() {
    sigemptyset(&m_wereOpen);
    for (const int number : kSignals) sigaddset(&m_wereOpen, number);
    m_ours = m_wereOpen;
    sigset_t blocked;
    if (pthread_sigmask(SIG_BLOCK, &m_wereOpen, &blocked) != 0) return;
    m_bBlocked = true;
    for (const int number : kSignals) {
        if (sigismember(&blocked, number) == 0) continue;
        // Only one that was blocked before can have been pending.
        sigdelset(&m_wereOpen, number);
        sigset_t pending;
        if (sigpending(&pending) != 0 || sigismember(&pending, number) != 0) sigdelset(&m_ours, number);
    }
}

WriteSignalBlock::~WriteSignalBlock() {
    if (!m_bBlocked) return;
    const int error = errno;
    TakeAwayRaised();
    pthread_sigmask(SIG_UNBLOCK, &m_wereOpen, nullptr);
    errno = error;
}

// One of each at most: a failed write raises its signal on this thread, and a thread's own
// signals are taken before those of the process. What cannot be told apart is a signal that
// somebody sends just now to a process all of whose threads block it.
void WriteSignalBlock::TakeAwayRaised() {
    const timespec atOnce{};
    for (int number = 1; number > 0 || errno == EINTR;) {
        number = sigtimedwait(&m_ours, nullptr, &atOnce);
        if (number > 0) sigdelset(&m_ours, number);
    }
}

}  // namespace NS_BUNDLEMGR1
