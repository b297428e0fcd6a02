// Numbers as people write them, in settings and on the command line alike.
#pragma once

#include <charconv>
#include <string>
#include <system_error>

#include <bundlemgr/base.h>

namespace alarms {

/// Reads a decimal number; white space around it means nothing. One with leading zeros
/// is refused: some take it for an octal one, and who writes 010 may mean ten or eight.
/// @param value receives it; untouched on failure
/// @return whether `text` is a number that an int can hold
inline bool ParseDecimal(const std::string& text, int& value) {
    const std::string digits = NS_BUNDLEMGR1::Trim(text);
    if (digits.size() > 1 && digits.front() == '0') return false;
    const char* const end = digits.data() + digits.size();
    int number = 0;
    const std::from_chars_result result = std::from_chars(digits.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end) return false;
    value = number;
    return true;
}

}  // namespace alarms
