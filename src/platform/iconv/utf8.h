// UTF-8: one to four bytes a character, read as GNU libiconv reads bad text.
//
// All of it is inline, for the loop that converts sound text.
#pragma once

#include "src/platform/iconv/codec.h"

namespace NS_BUNDLEMGR1 {

class Utf8Decoder final : public Decoder {
public:
    Decoded Next(const unsigned char* in, std::size_t left) override {
        const unsigned char lead = in[0];
        if (lead < 0x80) return Character(lead, 1);
        // The announced number of bytes is waited for, whatever they turn out to be.
        if (lead < 0xC2 || lead >= 0xF8) return Invalid(1);
        const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        if (left < length) return Incomplete();
        std::uint32_t codePoint = lead & (0x7Fu >> length);
        for (std::size_t i = 1; i < length; ++i) {
            if ((in[i] & 0xC0) != 0x80) return Invalid(1);
            codePoint = codePoint << 6 | (in[i] & 0x3Fu);
        }
        constexpr std::uint32_t kSmallest[] = {0x80, 0x800, 0x10000};
        return codePoint >= kSmallest[length - 2] && IsCodePoint(codePoint) ? Character(codePoint, length) : Invalid(1);
    }
};

class Utf8Encoder final : public Encoder {
public:
    std::ptrdiff_t Put(std::uint32_t codePoint, unsigned char* out, std::size_t room) override {
        if (codePoint < 0x80) {
            if (room < 1) return kNoRoom;
            out[0] = static_cast<unsigned char>(codePoint);
            return 1;
        }
        if (codePoint < 0x800) {
            if (room < 2) return kNoRoom;
            out[0] = static_cast<unsigned char>(0xC0 | codePoint >> 6);
            out[1] = Continuation(codePoint);
            return 2;
        }
        if (!IsCodePoint(codePoint)) return kUnrepresentable;
        if (codePoint < 0x10000) {
            if (room < 3) return kNoRoom;
            out[0] = static_cast<unsigned char>(0xE0 | codePoint >> 12);
            out[1] = Continuation(codePoint >> 6);
            out[2] = Continuation(codePoint);
            return 3;
        }
        if (room < 4) return kNoRoom;
        out[0] = static_cast<unsigned char>(0xF0 | codePoint >> 18);
        out[1] = Continuation(codePoint >> 12);
        out[2] = Continuation(codePoint >> 6);
        out[3] = Continuation(codePoint);
        return 4;
    }

private:
    static unsigned char Continuation(std::uint32_t bits) { return static_cast<unsigned char>(0x80 | (bits & 0x3F)); }
};

}  // namespace NS_BUNDLEMGR1
