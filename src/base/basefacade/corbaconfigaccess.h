// What the library itself does with the agent's settings, besides what everybody may.
#pragma once

#include <string>

namespace NS_BUNDLEMGR1 {

/// Thread-safe.
class CorbaConfigAccess {
public:
    /// `CorbaConfigItems::GetStrItemInfo` on the object if there is one. Creates none, and waits
    /// for no lock that is held while user code runs: for threads that are writing log records.
    static bool PeekStrItem(const std::string& name, std::string& value);

    /// @name Around fork
    /// The child finds the items whole and unlocked.
    /// @{
    static void BeforeFork();
    static void AfterFork();
    /// @}
};

}  // namespace NS_BUNDLEMGR1
