// The conversion of text, character by character, with a replacement for what is bad.
#pragma once

#include <memory>

#include "src/platform/iconv/codec.h"
#include "src/platform/iconv/iconv.h"

namespace NS_BUNDLEMGR1 {

struct Input {
    const unsigned char* next;
    std::size_t left;

    void Advance(std::size_t read) {
        next += read;
        left -= read;
    }
};

struct Output {
    unsigned char* next;
    std::size_t room;

    void Advance(std::size_t written) {
        next += written;
        room -= written;
    }
};

class Conversion {
public:
    /// @return null where one of the sets is unknown
    static std::unique_ptr<Conversion> Open(const char* to, const char* from);

    /// To be called before the first `Run`, with both functions that replace.
    void SetFallbacks(const iconv_fallbacks& fallbacks) { m_fallbacks = fallbacks; }

    /// Converts until the end, or up to what it cannot.
    /// @param replaced goes up by the number of replacements
    /// @return 0, EINVAL for an incomplete character, or E2BIG for one that does not fit
    int Run(Input& in, Output& out, std::size_t& replaced);

private:
    using ConvertSoundFunction = void (*)(Decoder&, Encoder&, Input&, Output&);

    /// What the functions that are handed to the fallbacks write to.
    struct Replacement;

    int Put(std::uint32_t codePoint, Output& out, std::size_t& replaced);
    int ReplaceCodePoint(std::uint32_t codePoint, Output& out);
    int ReplaceInput(const unsigned char* bytes, std::size_t count, Output& out);
    static void WriteBytes(const char* bytes, std::size_t count, void* arg);
    static void WriteCodePoints(const unsigned int* codePoints, std::size_t count, void* arg);

    std::unique_ptr<Decoder> m_decoder;
    std::unique_ptr<Encoder> m_encoder;
    ConvertSoundFunction m_convertSound = nullptr;  // null where the codecs have no loop of their own
    iconv_fallbacks m_fallbacks{};
};

}  // namespace NS_BUNDLEMGR1
