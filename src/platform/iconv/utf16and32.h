// UTF-16 and UTF-32, in either byte order.
#pragma once

#include "src/platform/iconv/codec.h"

namespace NS_BUNDLEMGR1 {

/// `kMarked` reads either order, as the last byte order mark says and big-endian before
/// one; it writes big-endian behind a mark.
enum class ByteOrder { kMarked, kBig, kLittle };

/// @tparam kUnit bytes of a unit: 2 for UTF-16, 4 for UTF-32
template <std::size_t kUnit>
class WideDecoder final : public Decoder {
public:
    explicit WideDecoder(ByteOrder order);
    Decoded Next(const unsigned char* in, std::size_t left) override;

private:
    const ByteOrder m_order;
    bool m_little;
};

template <std::size_t kUnit>
class WideEncoder final : public Encoder {
public:
    explicit WideEncoder(ByteOrder order);
    std::ptrdiff_t Put(std::uint32_t codePoint, unsigned char* out, std::size_t room) override;

private:
    bool IsMisread(std::uint32_t codePoint) const;
    unsigned char* Write(std::uint32_t unit, unsigned char* out) const;

    const ByteOrder m_order;
    bool m_markDue;
};

extern template class WideDecoder<2>;
extern template class WideDecoder<4>;
extern template class WideEncoder<2>;
extern template class WideEncoder<4>;

}  // namespace NS_BUNDLEMGR1
