// GBK, without the Euro sign that the C library's GBK has and GNU's lacks.
//
// All but the table is inline, for the loop that converts sound text.
#pragma once

#include "src/platform/iconv/codec.h"

namespace NS_BUNDLEMGR1 {

/// The characters of two bytes. Their values are made by makegbktable.cpp. Hidden, so that
/// code reaches it without a detour.
struct __attribute__((visibility("hidden"))) GbkTable {
    static constexpr unsigned kFirstLead = 0x81;
    static constexpr unsigned kLastLead = 0xFE;
    static constexpr std::size_t kPairs = (kLastLead - kFirstLead + 1) * 0x100;
    static constexpr std::size_t kCodePoints = 0x10000;

    static const std::uint16_t kCharacters[kPairs];  ///< By lead from `kFirstLead` on and trail; 0 where there is none.
    static const std::uint16_t kCodes[kCodePoints];  ///< By code point; 0 where there is none.
};

class GbkDecoder final : public Decoder {
public:
    Decoded Next(const unsigned char* in, std::size_t left) override {
        const unsigned lead = in[0];
        if (lead < 0x80) return Character(lead, 1);
        if (lead < GbkTable::kFirstLead || lead > GbkTable::kLastLead) return Invalid(1);
        if (left < 2) return Incomplete();
        const std::uint32_t codePoint = GbkTable::kCharacters[(lead - GbkTable::kFirstLead) << 8 | in[1]];
        return codePoint != 0 ? Character(codePoint, 2) : Invalid(1);
    }
};

class GbkEncoder final : public Encoder {
public:
    std::ptrdiff_t Put(std::uint32_t codePoint, unsigned char* out, std::size_t room) override {
        if (codePoint < 0x80) {
            if (room < 1) return kNoRoom;
            out[0] = static_cast<unsigned char>(codePoint);
            return 1;
        }
        const unsigned code = codePoint < GbkTable::kCodePoints ? GbkTable::kCodes[codePoint] : 0u;
        if (code == 0) return kUnrepresentable;
        if (room < 2) return kNoRoom;
        out[0] = static_cast<unsigned char>(code >> 8);
        out[1] = static_cast<unsigned char>(code);
        return 2;
    }
};

}  // namespace NS_BUNDLEMGR1
