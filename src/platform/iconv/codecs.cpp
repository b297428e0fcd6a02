#include "src/platform/iconv/codecs.h"

#include "src/platform/iconv/clibrarycodec.h"
#include "src/platform/iconv/gbk.h"
#include "src/platform/iconv/latin1.h"
#include "src/platform/iconv/utf16and32.h"
#include "src/platform/iconv/utf8.h"

namespace NS_BUNDLEMGR1 {

namespace {

template <class Codec>
std::unique_ptr<Codec> OpenOrNull(const char* name) {
    auto codec = std::make_unique<Codec>(name);
    if (!codec->IsOpen()) codec.reset();
    return codec;
}

/// The codecs of one direction.
struct Decoders {
    using Base = Decoder;
    using Gbk = GbkDecoder;
    using Utf8 = Utf8Decoder;
    using Latin1 = Latin1Decoder;
    using Utf16 = WideDecoder<2>;
    using Utf32 = WideDecoder<4>;
    using CLibrary = CLibraryDecoder;
};

struct Encoders {
    using Base = Encoder;
    using Gbk = GbkEncoder;
    using Utf8 = Utf8Encoder;
    using Latin1 = Latin1Encoder;
    using Utf16 = WideEncoder<2>;
    using Utf32 = WideEncoder<4>;
    using CLibrary = CLibraryEncoder;
};

template <class Codecs>
std::unique_ptr<typename Codecs::Base> Make(CodeSet codeSet, const char* name) {
    switch (codeSet) {
        case CodeSet::kGbk:
            return std::make_unique<typename Codecs::Gbk>();
        case CodeSet::kUtf8:
            return std::make_unique<typename Codecs::Utf8>();
        case CodeSet::kLatin1:
            return std::make_unique<typename Codecs::Latin1>();
        case CodeSet::kUtf16:
            return std::make_unique<typename Codecs::Utf16>(ByteOrder::kMarked);
        case CodeSet::kUtf16Be:
            return std::make_unique<typename Codecs::Utf16>(ByteOrder::kBig);
        case CodeSet::kUtf16Le:
            return std::make_unique<typename Codecs::Utf16>(ByteOrder::kLittle);
        case CodeSet::kUtf32:
            return std::make_unique<typename Codecs::Utf32>(ByteOrder::kMarked);
        case CodeSet::kUtf32Be:
            return std::make_unique<typename Codecs::Utf32>(ByteOrder::kBig);
        case CodeSet::kUtf32Le:
            return std::make_unique<typename Codecs::Utf32>(ByteOrder::kLittle);
        case CodeSet::kOther:
            return OpenOrNull<typename Codecs::CLibrary>(name);
        case CodeSet::kUnknown:
            break;
    }
    return nullptr;
}

}  // namespace

std::unique_ptr<Decoder> MakeDecoder(CodeSet codeSet, const char* name) {
    return Make<Decoders>(codeSet, name);
}

std::unique_ptr<Encoder> MakeEncoder(CodeSet codeSet, const char* name) {
    return Make<Encoders>(codeSet, name);
}

}  // namespace NS_BUNDLEMGR1
