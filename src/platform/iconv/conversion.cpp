#include "src/platform/iconv/conversion.h"

#include <cerrno>
#include <cstring>

#include "src/platform/iconv/codecs.h"
#include "src/platform/iconv/codesetname.h"
#include "src/platform/iconv/gbk.h"
#include "src/platform/iconv/latin1.h"
#include "src/platform/iconv/utf8.h"

namespace NS_BUNDLEMGR1 {

namespace {

// Converts up to the first character that takes more than reading and writing it. The
// codecs have no state, so that one may be read once more. The copies stay in registers,
// where the bytes written cannot be suspected of changing them.
template <class D, class E>
void ConvertSound(Decoder& anyDecoder, Encoder& anyEncoder, Input& input, Output& output) {
    auto& decoder = static_cast<D&>(anyDecoder);
    auto& encoder = static_cast<E&>(anyEncoder);
    Input in = input;
    Output out = output;
    while (in.left > 0 && out.room > 0) {
        const Decoded decoded = decoder.Next(in.next, in.left);
        if (decoded.kind != Decoded::kCharacter) break;
        const std::ptrdiff_t written = encoder.Put(decoded.codePoint, out.next, out.room);
        if (written < 0) break;
        in.Advance(decoded.length);
        out.Advance(static_cast<std::size_t>(written));
    }
    input = in;
    output = out;
}

/// @return the loop for a direction that is much used: the compiler inlines its codecs
auto ChooseConvertSound(CodeSet from, CodeSet to) -> decltype(&ConvertSound<GbkDecoder, Utf8Encoder>) {
    if (from == CodeSet::kGbk && to == CodeSet::kUtf8) return &ConvertSound<GbkDecoder, Utf8Encoder>;
    if (from == CodeSet::kUtf8 && to == CodeSet::kGbk) return &ConvertSound<Utf8Decoder, GbkEncoder>;
    if (from == CodeSet::kLatin1 && to == CodeSet::kUtf8) return &ConvertSound<Latin1Decoder, Utf8Encoder>;
    if (from == CodeSet::kUtf8 && to == CodeSet::kLatin1) return &ConvertSound<Utf8Decoder, Latin1Encoder>;
    return nullptr;
}

}  // namespace

struct Conversion::Replacement {
    Conversion& conversion;
    Output out{};
    int error = 0;
};

std::unique_ptr<Conversion> Conversion::Open(const char* to, const char* from) {
    const CodeSet source = FindCodeSet(from);
    const CodeSet target = FindCodeSet(to);
    auto conversion = std::make_unique<Conversion>();
    conversion->m_decoder = MakeDecoder(source, from);
    conversion->m_encoder = MakeEncoder(target, to);
    conversion->m_convertSound = ChooseConvertSound(source, target);
    if (conversion->m_decoder == nullptr || conversion->m_encoder == nullptr) return nullptr;
    return conversion;
}

int Conversion::Run(Input& in, Output& out, std::size_t& replaced) {
    while (true) {
        if (m_convertSound != nullptr) m_convertSound(*m_decoder, *m_encoder, in, out);
        if (in.left == 0) return 0;
        const Decoded decoded = m_decoder->Next(in.next, in.left);
        int error = 0;
        switch (decoded.kind) {
            case Decoded::kCharacter:
                error = Put(decoded.codePoint, out, replaced);
                break;
            case Decoded::kNothing:
                break;
            case Decoded::kInvalid:
                error = ReplaceInput(in.next, decoded.length, out);
                if (error == 0) ++replaced;
                break;
            case Decoded::kIncomplete:
                error = EINVAL;
                break;
        }
        if (error != 0) return error;
        in.Advance(decoded.length);
    }
}

int Conversion::Put(std::uint32_t codePoint, Output& out, std::size_t& replaced) {
    if (out.room == 0) return E2BIG;
    const std::ptrdiff_t written = m_encoder->Put(codePoint, out.next, out.room);
    if (written == kNoRoom) return E2BIG;
    if (written == kUnrepresentable) {
        // Language tags say nothing that is worth a replacement.
        if (codePoint >> 7 == 0xE0000 >> 7) return 0;
        ++replaced;
        return ReplaceCodePoint(codePoint, out);
    }
    out.Advance(static_cast<std::size_t>(written));
    return 0;
}

int Conversion::ReplaceCodePoint(std::uint32_t codePoint, Output& out) {
    Replacement replacement{*this, out};
    m_fallbacks.uc_to_mb_fallback(codePoint, &WriteBytes, &replacement, m_fallbacks.data);
    if (replacement.error == 0) out = replacement.out;
    return replacement.error;
}

void Conversion::WriteBytes(const char* bytes, std::size_t count, void* arg) {
    auto& replacement = *static_cast<Replacement*>(arg);
    if (replacement.error != 0) return;
    if (replacement.out.room < count) {
        replacement.error = E2BIG;
        return;
    }
    std::memcpy(replacement.out.next, bytes, count);
    replacement.out.Advance(count);
}

int Conversion::ReplaceInput(const unsigned char* bytes, std::size_t count, Output& out) {
    Replacement replacement{*this, out};
    m_fallbacks.mb_to_uc_fallback(reinterpret_cast<const char*>(bytes), count, &WriteCodePoints, &replacement,
                                  m_fallbacks.data);
    if (replacement.error == 0) out = replacement.out;
    return replacement.error;
}

void Conversion::WriteCodePoints(const unsigned int* codePoints, std::size_t count, void* arg) {
    auto& replacement = *static_cast<Replacement*>(arg);
    std::size_t notCounted = 0;
    for (std::size_t i = 0; i < count && replacement.error == 0; ++i) {
        replacement.error = replacement.conversion.Put(codePoints[i], replacement.out, notCounted);
    }
}

}  // namespace NS_BUNDLEMGR1
