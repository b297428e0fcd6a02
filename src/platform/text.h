// Questions about texts and paths that several sources ask.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace NS_BUNDLEMGR1 {

inline bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// @name Without space, tab, line feed and carriage return
/// At the beginning, at the end, or at both.
/// @{
inline bool IsWhiteSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

inline std::string_view LeftTrimmedView(std::string_view text) {
    while (!text.empty() && IsWhiteSpace(text.front())) text.remove_prefix(1);
    return text;
}

inline std::string_view RightTrimmedView(std::string_view text) {
    while (!text.empty() && IsWhiteSpace(text.back())) text.remove_suffix(1);
    return text;
}

inline std::string_view TrimmedView(std::string_view text) {
    return RightTrimmedView(LeftTrimmedView(text));
}
/// @}

/// Takes the next field off a text of fields. A separator at the end of the text adds no empty
/// field behind it.
/// @param rest  what is left of the text
/// @param field the field, when there is one
/// @return whether there is one
inline bool TakeField(std::string_view& rest, char separator, std::string_view& field) {
    if (rest.empty()) return false;
    const std::size_t end = rest.find(separator);
    field = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return true;
}

/// Copies `size` bytes in two pieces, which overlap where there are fewer than both have.
template <class Piece>
void CopyEnds(const char* from, std::size_t size, char* to) {
    Piece first{};
    Piece last{};
    std::memcpy(&first, from, sizeof first);
    std::memcpy(&last, from + size - sizeof last, sizeof last);
    std::memcpy(to, &first, sizeof first);
    std::memcpy(to + size - sizeof last, &last, sizeof last);
}

/// Copies a text, as `memcpy` does; a short one without a call.
/// @return the end of the copy
inline char* CopyText(std::string_view text, char* to) {
    const std::size_t size = text.size();
    const char* const from = text.data();
    if (size > 2 * sizeof(std::array<char, 32>)) {
        std::memcpy(to, from, size);
    } else if (size >= sizeof(std::array<char, 32>)) {
        CopyEnds<std::array<char, 32>>(from, size, to);
    } else if (size >= sizeof(std::array<char, 16>)) {
        CopyEnds<std::array<char, 16>>(from, size, to);
    } else if (size >= sizeof(std::uint64_t)) {
        CopyEnds<std::uint64_t>(from, size, to);
    } else if (size >= sizeof(std::uint32_t)) {
        CopyEnds<std::uint32_t>(from, size, to);
    } else {
        for (std::size_t i = 0; i < size; ++i) to[i] = from[i];
    }
    return to + size;
}

/// @return whether every byte is ASCII, and none is a NUL
inline bool IsPlainAscii(std::string_view text) {
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    const char* next = text.data();
    std::size_t left = text.size();
    std::uint64_t suspicious = 0;
    for (; left >= sizeof(std::uint64_t); left -= sizeof(std::uint64_t), next += sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, next, sizeof word);
        // Taking 1 from each byte sets the high bit of one that is 0.
        suspicious |= word | (word - kOnes);
    }
    for (; left > 0; --left, ++next) {
        const auto byte = static_cast<unsigned char>(*next);
        suspicious |= byte | (byte - std::uint64_t{1});
    }
    return (suspicious & kHighBits) == 0;
}

/// @return whether the path ends with "/" or "\"
inline bool EndsWithSeparator(const std::string& path) {
    return !path.empty() && (path.back() == '/' || path.back() == '\\');
}

/// @return the path less one "/" or "\" at its end
inline std::string WithoutTrailingSeparator(std::string path) {
    if (EndsWithSeparator(path)) path.pop_back();
    return path;
}

}  // namespace NS_BUNDLEMGR1
