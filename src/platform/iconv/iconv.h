// The calls of GNU libiconv that code-set conversion needs, under GNU's names and with
// its calling conventions. They come from GNU libiconv itself where it was found at
// configure time, and from iconvstandin.cpp elsewhere. Declared here rather than taken
// from GNU's <iconv.h>, which shares its file name with the C library's.
//
// What differs from the iconv of POSIX: with fallbacks installed, invalid input and
// characters that the target lacks are replaced and counted instead of stopping the
// conversion. So success is "not (size_t)-1", and 0 means that nothing was replaced.
#pragma once

#include <cstddef>

extern "C" {

using libiconv_t = void*;

/// What `ICONV_SET_FALLBACKS` installs.
struct iconv_fallbacks {
    /// Input that is invalid: hands over the bytes that are skipped and takes code
    /// points to stand in for them, which are then encoded.
    void (*mb_to_uc_fallback)(const char* bytes, std::size_t count,
                              void (*write)(const unsigned int* codePoints, std::size_t count, void* writeArg),
                              void* writeArg, void* data);
    /// A code point that the target lacks: takes bytes of the target to stand in.
    void (*uc_to_mb_fallback)(unsigned int codePoint,
                              void (*write)(const char* bytes, std::size_t count, void* writeArg), void* writeArg,
                              void* data);
    /// The same for conversion from and to wide characters; not used by us.
    void (*mb_to_wc_fallback)();
    void (*wc_to_mb_fallback)();
    void* data;  ///< Handed to the functions.
};

/// The one request of `libiconvctl` here; its argument is a `const iconv_fallbacks*`.
enum { ICONV_SET_FALLBACKS = 6 };

/// @return a handle, or (libiconv_t)-1 with errno EINVAL for an unknown set
libiconv_t libiconv_open(const char* toCode, const char* fromCode);

/// Converts, keeping shift states in the handle, in which fallbacks must be installed. Moves
/// the pointers and the counts of bytes left past what it has done; on failure they stand in
/// front of the character that is incomplete (EINVAL) or did not fit (E2BIG).
/// @return the number of replacements, or (size_t)-1
std::size_t libiconv(libiconv_t handle, char** in, std::size_t* inLeft, char** out, std::size_t* outLeft);

/// @return 0
int libiconvctl(libiconv_t handle, int request, void* argument);

/// @return 0
int libiconv_close(libiconv_t handle);
}

namespace NS_BUNDLEMGR1 {

/// @return what `libiconv_open` answers when it fails
inline libiconv_t NoIconv() {
    return reinterpret_cast<libiconv_t>(-1);  // NOLINT(performance-no-int-to-ptr): GNU's convention
}

}  // namespace NS_BUNDLEMGR1
