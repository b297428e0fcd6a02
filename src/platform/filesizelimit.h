// Whether the process may write files of any size.
#pragma once

namespace NS_BUNDLEMGR1 {

/// Remembers for a second at most whether the process has a limit on the size of its files
/// (`ulimit -f`): asking the system for each record of a log costs as much as formatting it.
/// A limit that is set meanwhile is noticed up to a second later.
///
/// Thread-safe; takes no lock.
class FileSizeLimit {
public:
    /// @return whether there is a limit, as of this second
    static bool IsSet();

    /// Asks the system, for a file that has just been opened or that refused to grow.
    /// @return whether there is a limit now
    static bool LookAgain();
};

}  // namespace NS_BUNDLEMGR1
