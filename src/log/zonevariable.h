// The time zone that the environment asks for.
#pragma once

#include <cstddef>

namespace NS_BUNDLEMGR1 {

/// Remembers where in the environment TZ is, or that it is not there: looking through all
/// variables for each record takes longer than writing its time. Whatever `setenv`, `unsetenv`
/// and `putenv` do is noticed at once; a program that writes into `environ` itself may not be.
///
/// Thread safety: none; as with `getenv`, nobody may change the environment meanwhile.
class ZoneVariable {
public:
    /// @return the value of TZ; without one, the file that the C library reads instead
    const char* Value();

private:
    bool IsWhereItWas() const;
    void Find();

    char** m_environment = nullptr;
    std::size_t m_size = 0;  // variables
    const char* m_last = nullptr;
    std::size_t m_at = 0;  // `m_size`: not found
    const char* m_found = nullptr;
};

}  // namespace NS_BUNDLEMGR1
