// Keeps a file-size limit from killing the process.
#pragma once

#include <csignal>

namespace NS_BUNDLEMGR1 {

/// While it lives, a write beyond the process's file-size limit (`ulimit -f`) fails on
/// this thread with EFBIG instead of ending the process with SIGXFSZ. Costs one system
/// call where no limit is set.
class FileSizeSignalBlock {
public:
    FileSizeSignalBlock();
    ~FileSizeSignalBlock();
    FileSizeSignalBlock(const FileSizeSignalBlock&) = delete;
    FileSizeSignalBlock& operator=(const FileSizeSignalBlock&) = delete;

private:
    bool m_bUnblock;  // was not blocked before
    bool m_bDiscard;  // was not pending before
};

}  // namespace NS_BUNDLEMGR1
