// ISO-8859-1: each byte is the code point of the same number.
//
// All of it is inline, for the loop that converts sound text.
#pragma once

#include "src/platform/iconv/codec.h"

namespace NS_BUNDLEMGR1 {

class Latin1Decoder final : public Decoder {
public:
    Decoded Next(const unsigned char* in, std::size_t) override { return Character(in[0], 1); }
};

class Latin1Encoder final : public Encoder {
public:
    std::ptrdiff_t Put(std::uint32_t codePoint, unsigned char* out, std::size_t room) override {
        if (codePoint > 0xFF) return kUnrepresentable;
        if (room < 1) return kNoRoom;
        out[0] = static_cast<unsigned char>(codePoint);
        return 1;
    }
};

}  // namespace NS_BUNDLEMGR1
