// Assertions as ACE reports them.
#pragma once

namespace NS_BUNDLEMGR1 {

/// Ends the process with ACE's report of an assertion.
[[noreturn]] void FailAssertion(const char* expression, const char* source, int line);

/// Ends the process when `condition` does not hold. `ACE_ASSERT` would report the whole path of
/// the source, where the log gives its bare name.
/// @param source bare name of the source file
inline void Assert(bool condition, const char* expression, const char* source, int line) {
    if (!condition) FailAssertion(expression, source, line);
}

}  // namespace NS_BUNDLEMGR1
