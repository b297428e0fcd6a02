// The log around fork.
#pragma once

namespace NS_BUNDLEMGR1 {

/// Makes sure that a forked child may log at once, whatever other threads of its parent
/// were doing, and that it leaves alone what is the parent's.
///
/// Its handlers are registered while the library is loaded, and so come before those of the
/// program: these may log, too, and take their locks before the log's.
class LogFork {
public:
    static int Register();

private:
    static void Before();
    static void InParent();
    static void InChild();
};

}  // namespace NS_BUNDLEMGR1
