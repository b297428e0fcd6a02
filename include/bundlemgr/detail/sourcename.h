/// @file sourcename.h
/// The bare name of a source file, for kit.h. Not to be named by anybody else.
#pragma once

#include <cstddef>

/// @cond INTERNAL
namespace NS_BUNDLEMGR1::detail {

/// @return where the name begins in the path
constexpr std::size_t SourceNameBegin(const char* path) {
    std::size_t begin = 0;
    for (std::size_t i = 0; path[i] != '\0'; ++i) {
        if (path[i] == '/') begin = i + 1;
    }
    return begin;
}

/// @return how long the name is without its extension
constexpr std::size_t SourceNameLength(const char* path) {
    const char* const name = path + SourceNameBegin(path);
    std::size_t length = 0;
    std::size_t end = 0;
    for (; name[length] != '\0'; ++length) {
        if (name[length] == '.') end = length;
    }
    return end != 0 ? end : length;
}

/// A copy of the name.
template <std::size_t Length>
struct SourceName {
    constexpr explicit SourceName(const char* path) {
        for (std::size_t i = 0; i < Length; ++i) text[i] = path[SourceNameBegin(path) + i];
    }
    char text[Length + 1] = {};
};

}  // namespace NS_BUNDLEMGR1::detail
/// @endcond
