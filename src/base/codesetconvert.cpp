#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

#include "bundlemgr/base.h"
#include "log/logproxy.h"
#include "platform/iconv.h"
#include "platform/standardoutput.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr char kUnknownCharset[] = "UNKOWN";
constexpr char kGbk[] = "GBK";
constexpr char kLatin1[] = "ISO-8859-1";
constexpr char kUtf8[] = "UTF-8";

CoreLog g_log("codesetconvert");

// ---- What replaces bad text ----

void ReplaceEachByte(const char*, std::size_t count, void (*write)(const unsigned int*, std::size_t, void*),
                     void* writeArg, void*) {
    const unsigned int mark = '?';
    for (std::size_t i = 0; i < count; ++i) write(&mark, 1, writeArg);
}

void ReplaceCharacter(unsigned int, void (*write)(const char*, std::size_t, void*), void* writeArg, void*) {
    write("?", 1, writeArg);
}

// ---- Names ----

/// @return whether a set can be called so: a name of the characters that GNU libiconv's names
///         are made of. The C library would take others for the names of sets that it knows,
///         or for "the set of the locale".
bool IsCharsetName(const std::string& name) {
    const auto belongs = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               (c != '\0' && std::strchr("_.:+()-", c) != nullptr);
    };
    return !name.empty() && std::all_of(name.begin(), name.end(), belongs);
}

/// @return an open handle that replaces what it cannot convert, or `NoIconv()`
libiconv_t OpenHandle(const std::string& from, const std::string& to) {
    libiconv_t handle = libiconv_open(to.c_str(), from.c_str());
    if (handle == NoIconv()) return handle;
    iconv_fallbacks fallbacks = {ReplaceEachByte, ReplaceCharacter, nullptr, nullptr, nullptr};
    libiconvctl(handle, ICONV_SET_FALLBACKS, &fallbacks);
    return handle;
}

// ---- Directions and their handles ----

constexpr std::size_t kPlaces = 32;
constexpr std::size_t kCacheLine = 64;

/// Where a thread looks for a handle first; threads that run at once mostly differ.
std::size_t HomePlace() {
    static std::atomic<std::size_t> next{0};
    thread_local const std::size_t home = next.fetch_add(1, std::memory_order_relaxed) % kPlaces;
    return home;
}

/// The open handles of one pair of sets.
///
/// A handle that changes while it converts is lent to one thread at a time. Each thread
/// leaves the one it had in its own place and takes it from there the next time, so that
/// threads do not queue for a lock, nor pass a cache line to and fro. A thread without
/// one looks for an idle one in the other places before it opens one more: a single
/// thread always has the same, whose shift state goes on from call to call.
///
/// Once published it is kept until the process ends, static destructors included.
class Direction {
public:
    Direction(std::string from, std::string to) : m_from(std::move(from)), m_to(std::move(to)) {}

    /// Only for one that is not published, because another thread's came first.
    ~Direction() {
        if (m_shared != nullptr) libiconv_close(m_shared);
        for (const Place& place : m_places) {
            libiconv_t idle = place.idle.load(std::memory_order_relaxed);
            if (idle != nullptr) libiconv_close(idle);
        }
    }

    Direction(const Direction&) = delete;
    Direction& operator=(const Direction&) = delete;

    /// Opens the first handle; called before the direction is published.
    /// @return whether the sets are known
    bool Open() {
        libiconv_t handle = OpenHandle(m_from, m_to);
        if (handle == NoIconv()) return false;
        if (IsSharableIconv(handle)) {
            m_shared = handle;
        } else {
            GiveBack(handle);
        }
        return true;
    }

    bool Is(std::string_view from, std::string_view to) const { return m_from == from && m_to == to; }

    /// @return a handle to be given back, or `NoIconv()` when one more cannot be opened
    libiconv_t Take() {
        if (m_shared != nullptr) return m_shared;
        const std::size_t home = HomePlace();
        for (std::size_t i = 0; i < kPlaces; ++i) {
            std::atomic<libiconv_t>& idle = m_places[(home + i) % kPlaces].idle;
            if (idle.load(std::memory_order_relaxed) == nullptr) continue;
            libiconv_t handle = idle.exchange(nullptr, std::memory_order_acquire);
            if (handle != nullptr) return handle;
        }
        return OpenHandle(m_from, m_to);
    }

    void GiveBack(libiconv_t handle) {
        if (handle == m_shared) return;
        const std::size_t home = HomePlace();
        for (std::size_t i = 0; i < kPlaces; ++i) {
            std::atomic<libiconv_t>& idle = m_places[(home + i) % kPlaces].idle;
            libiconv_t none = nullptr;
            if (idle.load(std::memory_order_relaxed) != nullptr) continue;
            if (idle.compare_exchange_strong(none, handle, std::memory_order_release)) return;
        }
        libiconv_close(handle);  // more than are ever needed at once
    }

    Direction* m_next = nullptr;  ///< In its bucket; set before the direction is published.

private:
    struct alignas(kCacheLine) Place {
        std::atomic<libiconv_t> idle{nullptr};
    };

    const std::string m_from;
    const std::string m_to;
    libiconv_t m_shared = nullptr;  ///< Serves all threads at once, where a handle can.
    Place m_places[kPlaces];
};

/// Gives a handle back when a conversion ends, also by an exception.
class Loan {
public:
    Loan(Direction& direction, libiconv_t handle) : m_direction(direction), m_handle(handle) {}
    ~Loan() { m_direction.GiveBack(m_handle); }
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;

private:
    Direction& m_direction;
    libiconv_t m_handle;
};

// The cache of directions: a hash table whose lists only grow, so that looking one up
// takes no lock. Constant-initialised and never destroyed: it serves static
// constructors and destructors, too.
constexpr std::size_t kBuckets = 64;
std::atomic<Direction*> g_cache[kBuckets];
std::mutex g_cacheMutex;  // Taken to insert.

std::atomic<Direction*>& BucketOf(std::string_view from, std::string_view to) {
    const std::hash<std::string_view> hash;
    return g_cache[(hash(from) * 31 + hash(to)) % kBuckets];
}

Direction* Search(const std::atomic<Direction*>& bucket, std::string_view from, std::string_view to) {
    Direction* direction = bucket.load(std::memory_order_acquire);
    while (direction != nullptr && !direction->Is(from, to)) direction = direction->m_next;
    return direction;
}

/// @return null when the sets cannot be opened. Reporting that is the caller's, who
///         holds no lock: the record's time stamp is converted here, too.
Direction* FindOrOpen(const std::string& from, const std::string& to) {
    std::atomic<Direction*>& bucket = BucketOf(from, to);
    Direction* const known = Search(bucket, from, to);
    if (known != nullptr) return known;

    // Opened outside the mutex: opening may load a library, and so wait for a thread that
    // loads another one, whose static constructors convert.
    auto direction = std::make_unique<Direction>(from, to);
    if (!direction->Open()) return nullptr;

    const std::lock_guard<std::mutex> guard(g_cacheMutex);
    Direction* const opened = Search(bucket, from, to);
    if (opened != nullptr) return opened;
    direction->m_next = bucket.load(std::memory_order_relaxed);
    bucket.store(direction.get(), std::memory_order_release);
    return direction.release();
}

void ReportFailedOpen(const std::string& from, const std::string& to) {
    constexpr char kFormat[] = "[CodeSetConvert]:iconv_open(%s,%s) failed.\n";
    PrintOut(kFormat, to.c_str(), from.c_str());
    g_log.Print(__LINE__, LOG_LEVEL_ERROR, kFormat, to.c_str(), from.c_str());
}

bool Run(libiconv_t handle, const std::string& in, std::string& out) {
    const std::size_t size = (in.size() + 1) * 2;
    const std::unique_ptr<char[]> buffer(new char[size]);
    char* inNext = const_cast<char*>(in.data());
    std::size_t inLeft = in.size();
    char* outNext = buffer.get();
    std::size_t outLeft = size;
    if (libiconv(handle, &inNext, &inLeft, &outNext, &outLeft) == static_cast<std::size_t>(-1)) return false;
    // The buffer may be full to the last byte, so the first NUL is looked for inside it.
    const std::size_t written = size - outLeft;
    const char* const nul = static_cast<const char*>(std::memchr(buffer.get(), '\0', written));
    out.assign(buffer.get(), nul != nullptr ? static_cast<std::size_t>(nul - buffer.get()) : written);
    return true;
}

/// @return whether conversion from any local set to UTF-8 is the identity: every byte
///         is ASCII, and none is the NUL at which output ends
bool IsPlainAscii(const std::string& text) {
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    const char* next = text.data();
    std::size_t left = text.size();
    std::uint64_t suspicious = 0;
    for (; left >= sizeof(std::uint64_t); left -= sizeof(std::uint64_t), next += sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, next, sizeof word);
        // Taking 1 from each byte sets the high bit of one that is 0.
        suspicious |= word | (word - kOnes);
    }
    for (; left > 0; --left, ++next) {
        const auto byte = static_cast<unsigned char>(*next);
        suspicious |= byte | (byte - std::uint64_t{1});
    }
    return (suspicious & kHighBits) == 0;
}

// ---- Settings, each read once ----

/// A setting that is not known before its first use. Two threads may read it at once
/// then; the first to finish decides for good.
template <class Value>
class ReadOnce {
public:
    constexpr ReadOnce() = default;

    template <class Read>
    Value Get(Read read) {
        int known = m_value.load(std::memory_order_relaxed);
        if (known != kUnread) return static_cast<Value>(known);
        const int value = static_cast<int>(read());
        return static_cast<Value>(m_value.compare_exchange_strong(known, value) ? value : known);
    }

private:
    static constexpr int kUnread = -1;
    std::atomic<int> m_value{kUnread};
};

enum CharacterSetSwitch : int { kSwitchNone = 0, kSwitchGbk = 1, kSwitchLatin1 = 2 };

ReadOnce<CharacterSetSwitch> g_characterSetSwitch;
ReadOnce<bool> g_localCharsetIsGbk;

CharacterSetSwitch ReadCharacterSetSwitch() {
    const char* const shareDir = std::getenv("_APP_SHARE_DIR");
    std::string value = "0";
    GetCfgInfo(value, "CharacterSetSwitch", std::string(shareDir != nullptr ? shareDir : "") + "/conf/corba_start.cfg");
    if (value == "1") return kSwitchGbk;
    if (value == "2") return kSwitchLatin1;
    return kSwitchNone;
}

bool ReadLocalCharsetIsGbk() {
    std::string value = "0";
    // Asks without creating: this is mostly called while a record is written, under the
    // log's locks, and creating would wait for the lock that the log's Destroy holds.
    CorbaConfigItems::PeekStrItem("LocalCharset", value);
    return value == "1";
}

/// @return the local set, or null for no conversion
const char* SwitchedCharset() {
    switch (g_characterSetSwitch.Get(ReadCharacterSetSwitch)) {
        case kSwitchGbk:
            return kGbk;
        case kSwitchLatin1:
            return kLatin1;
        case kSwitchNone:
            break;
    }
    return nullptr;
}

}  // namespace

bool CodeSetConvert(const std::string& from, const std::string& to, const std::string& in, std::string& out) {
    if (from == to) {
        out = in;
        return true;
    }
    if (to == kUnknownCharset || from == kUnknownCharset) return true;
    Direction* const direction = IsCharsetName(from) && IsCharsetName(to) ? FindOrOpen(from, to) : nullptr;
    libiconv_t handle = direction != nullptr ? direction->Take() : NoIconv();
    if (handle == NoIconv()) {
        ReportFailedOpen(from, to);
        return false;
    }
    const Loan loan(*direction, handle);
    return Run(handle, in, out);
}

bool Local2Utf(std::string& out, const std::string& in) {
    const char* const local = SwitchedCharset();
    if (local != nullptr) return CodeSetConvert(local, kUtf8, in, out);
    out = in;
    return true;
}

bool Utf2Local(std::string& out, const std::string& in) {
    const char* const local = SwitchedCharset();
    if (local != nullptr) return CodeSetConvert(kUtf8, local, in, out);
    out = in;
    return true;
}

void Convert2UTFforLog(const std::string& in, std::string& out) {
    const char* const local = g_localCharsetIsGbk.Get(ReadLocalCharsetIsGbk) ? kGbk : kLatin1;
    // Time stamps are plain, so writing a record opens no handle. Opening may load a
    // library, and would then wait, under the log's locks, for a thread that logs while
    // it loads another.
    if (IsPlainAscii(in) || !CodeSetConvert(local, kUtf8, in, out)) out = in;
}

}  // namespace NS_BUNDLEMGR1
