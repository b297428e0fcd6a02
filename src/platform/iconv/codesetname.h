// Which code set a name means.
#pragma once

#include <string>

namespace NS_BUNDLEMGR1 {

enum class CodeSet {
    kGbk,
    kUtf8,
    kLatin1,
    kUtf16,  ///< The byte order is that of a mark; so with kUtf32.
    kUtf16Be,
    kUtf16Le,
    kUtf32,
    kUtf32Be,
    kUtf32Le,
    kOther,    ///< The C library may know it.
    kUnknown,  ///< The C library would know it, but GNU libiconv does not.
};

/// @param name in upper or lower case
CodeSet FindCodeSet(const std::string& name);

}  // namespace NS_BUNDLEMGR1
