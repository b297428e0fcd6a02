#include "src/platform/iconv/utf16and32.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr std::uint32_t kByteOrderMark = 0xFEFF;

template <std::size_t kUnit>
constexpr std::uint32_t ReadUnit(const unsigned char* in, bool little) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < kUnit; ++i) value = value << 8 | in[little ? kUnit - 1 - i : i];
    return value;
}

template <std::size_t kUnit>
void WriteUnit(std::uint32_t value, bool little, unsigned char* out) {
    for (std::size_t i = 0; i < kUnit; ++i) {
        out[little ? i : kUnit - 1 - i] = static_cast<unsigned char>(value);
        value >>= 8;
    }
}

}  // namespace

template <std::size_t kUnit>
WideDecoder<kUnit>::WideDecoder(ByteOrder order) : m_order(order), m_little(order == ByteOrder::kLittle) {}

template <std::size_t kUnit>
Decoded WideDecoder<kUnit>::Next(const unsigned char* in, std::size_t left) {
    if (left < kUnit) return Incomplete();
    const std::uint32_t unit = ReadUnit<kUnit>(in, m_little);
    if (m_order == ByteOrder::kMarked && unit == kByteOrderMark) return Nothing(kUnit);
    if (m_order == ByteOrder::kMarked && ReadUnit<kUnit>(in, !m_little) == kByteOrderMark) {
        m_little = !m_little;
        return Nothing(kUnit);
    }
    if (IsCodePoint(unit)) return Character(unit, kUnit);
    if (kUnit != 2 || unit >= 0xDC00) return Invalid(kUnit);
    if (left < 2 * kUnit) return Incomplete();
    const std::uint32_t second = ReadUnit<kUnit>(in + kUnit, m_little);
    if (second < 0xDC00 || second >= 0xE000) return Invalid(kUnit);
    return Character(0x10000 + ((unit - 0xD800) << 10) + (second - 0xDC00), 2 * kUnit);
}

template <std::size_t kUnit>
WideEncoder<kUnit>::WideEncoder(ByteOrder order) : m_order(order), m_markDue(order == ByteOrder::kMarked) {}

template <std::size_t kUnit>
std::ptrdiff_t WideEncoder<kUnit>::Put(std::uint32_t codePoint, unsigned char* out, std::size_t room) {
    if (!IsCodePoint(codePoint) || IsMisread(codePoint)) return kUnrepresentable;
    const bool pair = kUnit == 2 && codePoint >= 0x10000;
    const std::size_t length = ((m_markDue ? 1u : 0u) + (pair ? 2u : 1u)) * kUnit;
    if (room < length) return kNoRoom;
    if (m_markDue) out = Write(kByteOrderMark, out);
    m_markDue = false;
    if (pair) {
        out = Write(0xD800 + ((codePoint - 0x10000) >> 10), out);
        Write(0xDC00 + (codePoint & 0x3FF), out);
    } else {
        Write(codePoint, out);
    }
    return static_cast<std::ptrdiff_t>(length);
}

// Where a mark tells the order, U+FFFE would be read as the mark of the other one.
template <std::size_t kUnit>
bool WideEncoder<kUnit>::IsMisread(std::uint32_t codePoint) const {
    return kUnit == 2 && m_order == ByteOrder::kMarked && codePoint == 0xFFFE;
}

template <std::size_t kUnit>
unsigned char* WideEncoder<kUnit>::Write(std::uint32_t unit, unsigned char* out) const {
    WriteUnit<kUnit>(unit, m_order == ByteOrder::kLittle, out);
    return out + kUnit;
}

template class WideDecoder<2>;
template class WideDecoder<4>;
template class WideEncoder<2>;
template class WideEncoder<4>;

}  // namespace NS_BUNDLEMGR1
