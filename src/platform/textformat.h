// printf for log texts.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace NS_BUNDLEMGR1 {

/// Formats as `vsnprintf_s` does. Formats whose conversions are `%s`, `%c`, `%d`, `%i`, `%u`, also
/// of `l`, `ll` and `z`, and `%%`, nothing else between, take a fraction of the C library's time.
/// @param dest    where the text goes
/// @param destMax size of `dest` in bytes, the NUL included; a longer text is cut
/// @param format  printf-style format
/// @param args    its arguments; used up afterwards
/// @return the number of characters stored, or -1 where a conversion failed
int FormatText(char* dest, std::size_t destMax, const char* format, va_list args) __attribute__((format(printf, 3, 0)));

}  // namespace NS_BUNDLEMGR1
