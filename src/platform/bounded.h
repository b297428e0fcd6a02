// Bounds-checked forms of memset, strncpy and snprintf: each takes the size of its
// destination, never writes past it and leaves no text without its NUL.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace NS_BUNDLEMGR1 {

/// Sets `count` bytes to `c`; when the destination is smaller, all of it.
/// @param destMax size of `dest` in bytes
/// @return 0, EINVAL for a null or empty destination, ERANGE for one too small
inline int memset_s(void* dest, std::size_t destMax, int c, std::size_t count) {
    if (dest == nullptr || destMax == 0) return EINVAL;
    std::memset(dest, c, std::min(count, destMax));
    return count <= destMax ? 0 : ERANGE;
}

/// Copies `src`, but not more than `count` characters of it, and a NUL. On failure
/// the destination becomes the empty text.
/// @param destMax size of `dest` in bytes, the NUL included
/// @return 0, EINVAL for a null argument or an empty destination, ERANGE for a
///         destination too small
inline int strncpy_s(char* dest, std::size_t destMax, const char* src, std::size_t count) {
    if (dest == nullptr || destMax == 0) return EINVAL;
    if (src == nullptr) {
        dest[0] = '\0';
        return EINVAL;
    }
    const std::size_t length = strnlen(src, count);
    if (length >= destMax) {
        dest[0] = '\0';
        return ERANGE;
    }
    std::memmove(dest, src, length);
    dest[length] = '\0';
    return 0;
}

/// Formats as `vsnprintf` does. A text of more than `count` characters is cut there,
/// which is no failure.
/// @param destMax size of `dest` in bytes, the NUL included
/// @return the number of characters stored, or -1: for a null or empty destination,
///         a null format, a failing conversion, and where `count` would let the text
///         outgrow the destination. What was stored by then stays, with its NUL
__attribute__((format(printf, 4, 0))) inline int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count,
                                                             const char* format, va_list args) {
    if (dest == nullptr || destMax == 0) return -1;
    dest[0] = '\0';
    if (format == nullptr) return -1;

    const std::size_t limit = std::min(count, destMax - 1);
    const int length = std::vsnprintf(dest, limit + 1, format, args);
    dest[limit] = '\0';  // The C library promises no NUL when it fails.
    if (length < 0) return -1;
    if (static_cast<std::size_t>(length) <= limit) return length;
    return limit == count ? static_cast<int>(limit) : -1;
}

/// `vsnprintf_s` with its arguments in place.
__attribute__((format(printf, 4, 5))) inline int snprintf_s(char* dest, std::size_t destMax, std::size_t count,
                                                            const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int length = vsnprintf_s(dest, destMax, count, format, args);
    va_end(args);
    return length;
}

}  // namespace NS_BUNDLEMGR1
