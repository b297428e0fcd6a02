// What reads and what writes the characters of one code set.
#pragma once

#include <cstddef>
#include <cstdint>

namespace NS_BUNDLEMGR1 {

/// What a decoder makes of the next bytes.
struct Decoded {
    enum Kind {
        kCharacter,   ///< A code point, of `length` bytes.
        kNothing,     ///< `length` bytes that only change the decoder's state.
        kInvalid,     ///< No character begins here; `length` bytes are to be skipped.
        kIncomplete,  ///< Too few bytes to tell.
    };
    Kind kind;
    std::size_t length;
    std::uint32_t codePoint;
};

constexpr Decoded Character(std::uint32_t codePoint, std::size_t length) {
    return {Decoded::kCharacter, length, codePoint};
}
constexpr Decoded Nothing(std::size_t length) {
    return {Decoded::kNothing, length, 0};
}
constexpr Decoded Invalid(std::size_t length) {
    return {Decoded::kInvalid, length, 0};
}
constexpr Decoded Incomplete() {
    return {Decoded::kIncomplete, 0, 0};
}

class Decoder {
public:
    virtual ~Decoder() = default;
    /// @param left bytes at `in`, at least one
    virtual Decoded Next(const unsigned char* in, std::size_t left) = 0;
};

/// What `Encoder::Put` answers instead of a number of bytes.
constexpr std::ptrdiff_t kUnrepresentable = -1;
constexpr std::ptrdiff_t kNoRoom = -2;

class Encoder {
public:
    virtual ~Encoder() = default;
    /// @return the number of bytes written, or one of the above and nothing written
    virtual std::ptrdiff_t Put(std::uint32_t codePoint, unsigned char* out, std::size_t room) = 0;
};

constexpr bool IsSurrogate(std::uint32_t codePoint) {
    return codePoint >= 0xD800 && codePoint < 0xE000;
}

constexpr bool IsCodePoint(std::uint32_t value) {
    return value < 0x110000 && !IsSurrogate(value);
}

}  // namespace NS_BUNDLEMGR1
