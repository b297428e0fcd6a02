// Assertions as ACE reports them.
#pragma once

namespace NS_BUNDLEMGR1 {

/// Ends the process when `condition` does not hold, with ACE's report of `expression`.
/// `ACE_ASSERT` would name the whole path of the source, where the log gives its bare name.
/// @param source bare name of the source file
void Assert(bool condition, const char* expression, const char* source, int line);

}  // namespace NS_BUNDLEMGR1
