// GNU libiconv's calls over the C library's iconv.
//
// The two libraries know the same characters but part ways where text is bad: the C
// library reports invalid and unrepresentable input alike, drops whole invalid
// sequences, and gives GBK a Euro sign that GNU's GBK lacks. So everything goes
// character by character through Unicode here: a decoder reads one, an encoder writes
// it, and what either cannot do is replaced in between.
//
// GBK, UTF-8, ISO-8859-1, UTF-16 and UTF-32 have codecs of our own, GBK with a table that
// was made while building. For every other set two of the C library's handles do the
// reading and writing.
#include "src/platform/iconv/iconv.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include <iconv.h>
#include <pthread.h>

#ifdef _LIBICONV_VERSION
#error "GNU libiconv's iconv.h is found, its library is not: install both or neither"
#endif

static_assert(sizeof(wchar_t) == 4, "the C library's wide characters are code points");

namespace NS_BUNDLEMGR1 {

namespace {

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
    virtual void Reset() {}
};

/// What `Encoder::Put` answers instead of a number of bytes.
constexpr std::ptrdiff_t kUnrepresentable = -1;
constexpr std::ptrdiff_t kNoRoom = -2;

class Encoder {
public:
    virtual ~Encoder() = default;
    /// @return the number of bytes written, or one of the above and nothing written
    virtual std::ptrdiff_t Put(std::uint32_t codePoint, unsigned char* out, std::size_t room) = 0;
    /// Goes back to the initial state, writing the bytes that takes.
    virtual std::ptrdiff_t Finish(unsigned char*, std::size_t) { return 0; }
    virtual void Reset() {}
};

constexpr bool IsSurrogate(std::uint32_t codePoint) {
    return codePoint >= 0xD800 && codePoint < 0xE000;
}

constexpr bool IsCodePoint(std::uint32_t value) {
    return value < 0x110000 && !IsSurrogate(value);
}

// ---- ISO-8859-1 ----

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

// ---- UTF-8 ----

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

// ---- UTF-16 and UTF-32 ----

/// `kMarked` reads either order, as the last byte order mark says and big-endian before
/// one; it writes big-endian behind a mark.
enum class ByteOrder { kMarked, kBig, kLittle };

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

constexpr std::uint32_t kByteOrderMark = 0xFEFF;

template <std::size_t kUnit>
class WideDecoder final : public Decoder {
public:
    explicit WideDecoder(ByteOrder order) : m_order(order) { WideDecoder::Reset(); }

    Decoded Next(const unsigned char* in, std::size_t left) override {
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

    void Reset() override { m_little = m_order == ByteOrder::kLittle; }

private:
    const ByteOrder m_order;
    bool m_little = false;
};

template <std::size_t kUnit>
class WideEncoder final : public Encoder {
public:
    explicit WideEncoder(ByteOrder order) : m_order(order) { WideEncoder::Reset(); }

    std::ptrdiff_t Put(std::uint32_t codePoint, unsigned char* out, std::size_t room) override {
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

    void Reset() override { m_markDue = m_order == ByteOrder::kMarked; }

private:
    /// Where a mark tells the order, U+FFFE would read as the mark of the other one.
    bool IsMisread(std::uint32_t codePoint) const {
        return kUnit == 2 && m_order == ByteOrder::kMarked && codePoint == 0xFFFE;
    }

    unsigned char* Write(std::uint32_t unit, unsigned char* out) const {
        WriteUnit<kUnit>(unit, m_order == ByteOrder::kLittle, out);
        return out + kUnit;
    }

    const ByteOrder m_order;
    bool m_markDue = false;
};

// ---- Every set of the C library ----

// Opening and closing take a lock of the C library's that it does not release in a forked
// child. Nobody of ours is inside when the process forks.
std::mutex g_openMutex;

const struct ForkHandlers {
    ForkHandlers() { pthread_atfork(&Lock, &Unlock, &Unlock); }
    static void Lock() { g_openMutex.lock(); }
    static void Unlock() { g_openMutex.unlock(); }
} g_forkHandlers;

class CLibraryHandle {
public:
    CLibraryHandle(const char* to, const char* from) {
        const std::lock_guard<std::mutex> guard(g_openMutex);
        m_handle = iconv_open(to, from);
    }
    ~CLibraryHandle() {
        if (!IsOpen()) return;
        const std::lock_guard<std::mutex> guard(g_openMutex);
        iconv_close(m_handle);
    }
    CLibraryHandle(const CLibraryHandle&) = delete;
    CLibraryHandle& operator=(const CLibraryHandle&) = delete;

    bool IsOpen() const { return m_handle != NoIconv(); }

    /// @return 0 or the error number; `inLeft` and `outLeft` go down by what was done
    int Convert(const void* in, std::size_t& inLeft, void* out, std::size_t& outLeft) {
        char* inNext = static_cast<char*>(const_cast<void*>(in));
        char* outNext = static_cast<char*>(out);
        return iconv(m_handle, &inNext, &inLeft, &outNext, &outLeft) == static_cast<std::size_t>(-1) ? errno : 0;
    }

    int Finish(void* out, std::size_t& outLeft) {
        char* outNext = static_cast<char*>(out);
        return iconv(m_handle, nullptr, nullptr, &outNext, &outLeft) == static_cast<std::size_t>(-1) ? errno : 0;
    }

    void Reset() { iconv(m_handle, nullptr, nullptr, nullptr, nullptr); }

private:
    void* m_handle = NoIconv();
};

class CLibraryDecoder final : public Decoder {
public:
    explicit CLibraryDecoder(const char* charset) : m_handle("WCHAR_T", charset) {}

    bool IsOpen() const { return m_handle.IsOpen(); }

    Decoded Next(const unsigned char* in, std::size_t left) override {
        // Room for one character makes the C library stop behind it.
        wchar_t character = 0;
        std::size_t room = sizeof character;
        std::size_t unread = left;
        const int error = m_handle.Convert(in, unread, &character, room);
        const std::size_t length = left - unread;
        if (room == 0) return Character(static_cast<std::uint32_t>(character), length);
        if (length > 0) return Nothing(length);
        return error == EILSEQ ? Invalid(1) : Incomplete();
    }

    void Reset() override { m_handle.Reset(); }

private:
    CLibraryHandle m_handle;
};

class CLibraryEncoder final : public Encoder {
public:
    explicit CLibraryEncoder(const char* charset) : m_handle(charset, "WCHAR_T") {}

    bool IsOpen() const { return m_handle.IsOpen(); }

    std::ptrdiff_t Put(std::uint32_t codePoint, unsigned char* out, std::size_t room) override {
        const wchar_t character = static_cast<wchar_t>(codePoint);
        std::size_t unread = sizeof character;
        std::size_t left = room;
        const int error = m_handle.Convert(&character, unread, out, left);
        if (error != 0) return error == E2BIG ? kNoRoom : kUnrepresentable;
        return static_cast<std::ptrdiff_t>(room - left);
    }

    std::ptrdiff_t Finish(unsigned char* out, std::size_t room) override {
        std::size_t left = room;
        if (m_handle.Finish(out, left) != 0) return kNoRoom;
        return static_cast<std::ptrdiff_t>(room - left);
    }

    void Reset() override { m_handle.Reset(); }

private:
    CLibraryHandle m_handle;
};

// ---- GBK ----

// `kGbkCharacters` by code from `kGbkFirst` on, and `kGbkCodes` by code point; 0 where
// there is none.
#include "src/platform/iconv/gbktable.inc"

class GbkDecoder final : public Decoder {
public:
    Decoded Next(const unsigned char* in, std::size_t left) override {
        if (in[0] < 0x80) return Character(in[0], 1);
        if (in[0] < kGbkFirst >> 8 || in[0] > kGbkLast >> 8) return Invalid(1);
        if (left < 2) return Incomplete();
        const std::uint32_t codePoint = CharacterOf(static_cast<unsigned>(in[0]) << 8 | in[1]);
        return codePoint != 0 ? Character(codePoint, 2) : Invalid(1);
    }

private:
    static std::uint32_t CharacterOf(unsigned code) {
        return code >= kGbkFirst && code <= kGbkLast ? kGbkCharacters[code - kGbkFirst] : 0u;
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
        const unsigned code = codePoint < std::size(kGbkCodes) ? kGbkCodes[codePoint] : 0u;
        if (code == 0) return kUnrepresentable;
        if (room < 2) return kNoRoom;
        out[0] = static_cast<unsigned char>(code >> 8);
        out[1] = static_cast<unsigned char>(code);
        return 2;
    }
};

// ---- Which set a name means ----

enum class Charset { kGbk, kUtf8, kLatin1, kUtf16, kUtf32, kOther };

struct CharsetName {
    const char* name;
    Charset charset;
    ByteOrder order = ByteOrder::kMarked;
};

// The C library counts CP936 and its like as GBK; for GNU they are sets of their own,
// with a Euro sign at 80, and so they are here: the C library's.
constexpr CharsetName kCharsetNames[] = {
    {"GBK", Charset::kGbk},
    {"CSGBK", Charset::kGbk},
    {"UTF-8", Charset::kUtf8},
    {"UTF8", Charset::kUtf8},
    {"ISO-8859-1", Charset::kLatin1},
    {"ISO_8859-1", Charset::kLatin1},
    {"ISO_8859-1:1987", Charset::kLatin1},
    {"ISO8859-1", Charset::kLatin1},
    {"ISO88591", Charset::kLatin1},
    {"ISO-IR-100", Charset::kLatin1},
    {"8859_1", Charset::kLatin1},
    {"CP819", Charset::kLatin1},
    {"IBM819", Charset::kLatin1},
    {"LATIN1", Charset::kLatin1},
    {"L1", Charset::kLatin1},
    {"CSISOLATIN1", Charset::kLatin1},
    {"UTF-16", Charset::kUtf16},
    {"UTF16", Charset::kUtf16},
    {"UTF-16BE", Charset::kUtf16, ByteOrder::kBig},
    {"UTF-16LE", Charset::kUtf16, ByteOrder::kLittle},
    {"UTF-32", Charset::kUtf32},
    {"UTF32", Charset::kUtf32},
    {"UTF-32BE", Charset::kUtf32, ByteOrder::kBig},
    {"UTF-32LE", Charset::kUtf32, ByteOrder::kLittle},
};

CharsetName Recognise(const char* name) {
    std::string upper(name);
    for (char& c : upper) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    for (const CharsetName& known : kCharsetNames) {
        if (upper == known.name) return known;
    }
    return {name, Charset::kOther};
}

// The C library passes over these characters, and may then have another set of its own for the
// name of one of ours, or that of the locale for none at all.
bool IsDisguised(const std::string& name) {
    std::string bare;
    std::remove_copy_if(name.begin(), name.end(), std::back_inserter(bare),
                        [](char c) { return c == '+' || c == '(' || c == ')'; });
    return bare != name && (bare.empty() || Recognise(bare.c_str()).charset != Charset::kOther);
}

std::unique_ptr<Decoder> MakeDecoder(const CharsetName& name) {
    switch (name.charset) {
        case Charset::kGbk:
            return std::make_unique<GbkDecoder>();
        case Charset::kUtf8:
            return std::make_unique<Utf8Decoder>();
        case Charset::kLatin1:
            return std::make_unique<Latin1Decoder>();
        case Charset::kUtf16:
            return std::make_unique<WideDecoder<2>>(name.order);
        case Charset::kUtf32:
            return std::make_unique<WideDecoder<4>>(name.order);
        case Charset::kOther:
            break;
    }
    auto decoder = std::make_unique<CLibraryDecoder>(name.name);
    if (!decoder->IsOpen()) return nullptr;
    return decoder;
}

std::unique_ptr<Encoder> MakeEncoder(const CharsetName& name) {
    switch (name.charset) {
        case Charset::kGbk:
            return std::make_unique<GbkEncoder>();
        case Charset::kUtf8:
            return std::make_unique<Utf8Encoder>();
        case Charset::kLatin1:
            return std::make_unique<Latin1Encoder>();
        case Charset::kUtf16:
            return std::make_unique<WideEncoder<2>>(name.order);
        case Charset::kUtf32:
            return std::make_unique<WideEncoder<4>>(name.order);
        case Charset::kOther:
            break;
    }
    auto encoder = std::make_unique<CLibraryEncoder>(name.name);
    if (!encoder->IsOpen()) return nullptr;
    return encoder;
}

// ---- The conversion ----

struct Input {
    const unsigned char* next = nullptr;
    std::size_t left = 0;

    void Advance(std::size_t read) {
        next += read;
        left -= read;
    }
};

struct Output {
    unsigned char* next = nullptr;
    std::size_t room = 0;

    void Advance(std::size_t written) {
        next += written;
        room -= written;
    }
};

/// What the functions that are handed to the fallbacks write to.
struct Replacement {
    Encoder& encoder;
    const iconv_fallbacks& fallbacks;
    Output out;
    int error = 0;
};

void WriteBytes(const char* bytes, std::size_t count, void* arg) {
    auto& replacement = *static_cast<Replacement*>(arg);
    if (replacement.error != 0) return;
    if (replacement.out.room < count) {
        replacement.error = E2BIG;
        return;
    }
    std::memcpy(replacement.out.next, bytes, count);
    replacement.out.Advance(count);
}

// For a code point that the target lacks. Returns an error number, as all below.
int ReplaceCodePoint(Encoder& encoder, const iconv_fallbacks& fallbacks, std::uint32_t codePoint, Output& out,
                     std::size_t& replaced) {
    // Language tags say nothing that is worth a replacement.
    if (codePoint >> 7 == 0xE0000 >> 7) return 0;
    ++replaced;
    if (fallbacks.uc_to_mb_fallback != nullptr) {
        Replacement replacement{encoder, fallbacks, out};
        fallbacks.uc_to_mb_fallback(codePoint, WriteBytes, &replacement, fallbacks.data);
        if (replacement.error == 0) out = replacement.out;
        return replacement.error;
    }
    const std::ptrdiff_t written = encoder.Put(0xFFFD, out.next, out.room);
    if (written < 0) return written == kNoRoom ? E2BIG : EILSEQ;
    out.Advance(static_cast<std::size_t>(written));
    return 0;
}

template <class E>
int PutCodePoint(E& encoder, const iconv_fallbacks& fallbacks, std::uint32_t codePoint, Output& out,
                 std::size_t& replaced) {
    if (out.room == 0) return E2BIG;
    const std::ptrdiff_t written = encoder.Put(codePoint, out.next, out.room);
    if (written == kUnrepresentable) return ReplaceCodePoint(encoder, fallbacks, codePoint, out, replaced);
    if (written == kNoRoom) return E2BIG;
    out.Advance(static_cast<std::size_t>(written));
    return 0;
}

void WriteCodePoints(const unsigned int* codePoints, std::size_t count, void* arg) {
    auto& replacement = *static_cast<Replacement*>(arg);
    std::size_t notCounted = 0;
    for (std::size_t i = 0; i < count && replacement.error == 0; ++i) {
        replacement.error =
            PutCodePoint(replacement.encoder, replacement.fallbacks, codePoints[i], replacement.out, notCounted);
    }
}

int ReplaceInput(Encoder& encoder, const iconv_fallbacks& fallbacks, const unsigned char* bytes, std::size_t count,
                 Output& out, std::size_t& replaced) {
    if (fallbacks.mb_to_uc_fallback == nullptr) return EILSEQ;
    Replacement replacement{encoder, fallbacks, out};
    fallbacks.mb_to_uc_fallback(reinterpret_cast<const char*>(bytes), count, WriteCodePoints, &replacement,
                                fallbacks.data);
    if (replacement.error != 0) return replacement.error;
    out = replacement.out;
    ++replaced;
    return 0;
}

// Converts up to the first character that takes more than reading and writing it. The
// codecs have no state, so that one may be read once more. The copies stay in registers,
// where the bytes written cannot be suspected of changing them.
template <class D, class E>
void ConvertSound(D& decoder, E& encoder, Input& input, Output& output) {
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

// With concrete codecs their calls are inlined; with the abstract ones it serves any.
template <class D, class E>
int Convert(Decoder& anyDecoder, Encoder& anyEncoder, const iconv_fallbacks& fallbacks, Input& in, Output& out,
            std::size_t& replaced) {
    constexpr bool kConcrete = !std::is_same_v<D, Decoder>;
    auto& decoder = static_cast<D&>(anyDecoder);
    auto& encoder = static_cast<E&>(anyEncoder);
    while (true) {
        if constexpr (kConcrete) ConvertSound(decoder, encoder, in, out);
        if (in.left == 0) return 0;
        const Decoded decoded = decoder.Next(in.next, in.left);
        int error = 0;
        switch (decoded.kind) {
            case Decoded::kCharacter:
                error = PutCodePoint(encoder, fallbacks, decoded.codePoint, out, replaced);
                break;
            case Decoded::kNothing:
                break;
            case Decoded::kInvalid:
                error = ReplaceInput(encoder, fallbacks, in.next, decoded.length, out, replaced);
                break;
            case Decoded::kIncomplete:
                error = EINVAL;
                break;
        }
        if (error != 0) return error;
        in.Advance(decoded.length);
    }
}

using ConvertFunction = decltype(&Convert<Decoder, Encoder>);

template <class D>
ConvertFunction ConvertFrom(Charset to) {
    switch (to) {
        case Charset::kGbk:
            return &Convert<D, GbkEncoder>;
        case Charset::kUtf8:
            return &Convert<D, Utf8Encoder>;
        case Charset::kLatin1:
            return &Convert<D, Latin1Encoder>;
        default:
            return &Convert<Decoder, Encoder>;
    }
}

ConvertFunction ChooseConvert(Charset from, Charset to) {
    switch (from) {
        case Charset::kGbk:
            return ConvertFrom<GbkDecoder>(to);
        case Charset::kUtf8:
            return ConvertFrom<Utf8Decoder>(to);
        case Charset::kLatin1:
            return ConvertFrom<Latin1Decoder>(to);
        default:
            return &Convert<Decoder, Encoder>;
    }
}

struct Handle {
    std::unique_ptr<Decoder> decoder;
    std::unique_ptr<Encoder> encoder;
    ConvertFunction convert;
    iconv_fallbacks fallbacks;
};

Handle& Of(libiconv_t handle) {
    return *static_cast<Handle*>(handle);
}

std::unique_ptr<Handle> Open(const char* toCode, const char* fromCode) {
    if (IsDisguised(fromCode) || IsDisguised(toCode)) return nullptr;
    const CharsetName from = Recognise(fromCode);
    const CharsetName to = Recognise(toCode);
    std::unique_ptr<Decoder> decoder = MakeDecoder(from);
    std::unique_ptr<Encoder> encoder = MakeEncoder(to);
    if (decoder == nullptr || encoder == nullptr) return nullptr;
    return std::make_unique<Handle>(
        Handle{std::move(decoder), std::move(encoder), ChooseConvert(from.charset, to.charset), iconv_fallbacks()});
}

std::size_t Fail(int error) {
    errno = error;
    return static_cast<std::size_t>(-1);
}

std::size_t ResetStates(Handle& handle, char** out, std::size_t* outLeft) {
    if (out != nullptr && *out != nullptr) {
        const std::ptrdiff_t written = handle.encoder->Finish(reinterpret_cast<unsigned char*>(*out), *outLeft);
        if (written < 0) return Fail(E2BIG);
        *out += written;
        *outLeft -= static_cast<std::size_t>(written);
    }
    handle.decoder->Reset();
    handle.encoder->Reset();
    return 0;
}

}  // namespace

}  // namespace NS_BUNDLEMGR1

using namespace NS_BUNDLEMGR1;  // NOLINT(google-build-using-namespace): its own file's definitions

libiconv_t libiconv_open(const char* toCode, const char* fromCode) {
    try {
        std::unique_ptr<Handle> handle = Open(toCode, fromCode);
        if (handle != nullptr) return handle.release();
        errno = EINVAL;
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
    }
    return NoIconv();
}

std::size_t libiconv(libiconv_t handle, char** in, std::size_t* inLeft, char** out, std::size_t* outLeft) {
    Handle& h = Of(handle);
    if (in == nullptr || *in == nullptr) return ResetStates(h, out, outLeft);
    Input input{reinterpret_cast<const unsigned char*>(*in), *inLeft};
    Output output{reinterpret_cast<unsigned char*>(*out), *outLeft};
    std::size_t replaced = 0;
    const int error = h.convert(*h.decoder, *h.encoder, h.fallbacks, input, output, replaced);
    *in += *inLeft - input.left;
    *inLeft = input.left;
    *out += *outLeft - output.room;
    *outLeft = output.room;
    return error == 0 ? replaced : Fail(error);
}

int libiconvctl(libiconv_t handle, int request, void* argument) {
    if (request != ICONV_SET_FALLBACKS) {
        errno = EINVAL;
        return -1;
    }
    const auto* const fallbacks = static_cast<const iconv_fallbacks*>(argument);
    Of(handle).fallbacks = fallbacks != nullptr ? *fallbacks : iconv_fallbacks();
    return 0;
}

int libiconv_close(libiconv_t handle) {
    delete &Of(handle);
    return 0;
}
