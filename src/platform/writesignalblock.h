// Keeps a write that fails from killing the process.
#pragma once

#include <csignal>

namespace NS_BUNDLEMGR1 {

/// While it lives, a write on this thread beyond the process's file-size limit
/// (`ulimit -f`), or to a pipe or socket whose reader is gone, fails with EFBIG or EPIPE
/// instead of ending the process with SIGXFSZ or SIGPIPE.
///
/// Afterwards the thread's signals are as they were: what was pending before still is,
/// what was raised meanwhile is taken away. Costs three system calls: a regular file needs it
/// only where files have a size limit (see `FileSizeLimit`).
class WriteSignalBlock {
public:
    WriteSignalBlock();
    ~WriteSignalBlock();
    WriteSignalBlock(const WriteSignalBlock&) = delete;
    WriteSignalBlock& operator=(const WriteSignalBlock&) = delete;

private:
    void TakeAwayRaised();

    bool m_bBlocked;
    sigset_t m_wereOpen;  // not blocked before
    sigset_t m_ours;      // not pending before
};

}  // namespace NS_BUNDLEMGR1
