#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <new>
#include <string_view>

#include <pthread.h>

#include <bundlemgr/base.h>
#include <bundlemgr/detail/mutex.h>

#include "src/base/basefacade/corbaconfigaccess.h"
#include "src/corelog/corelog.h"
#include "src/platform/iconv/iconv.h"
#include "src/platform/standardoutput.h"
#include "src/platform/text.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr std::string_view kUnknownCharset = "UNKOWN";
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

// ---- Open handles ----

/// One open handle, which serves one thread at a time.
class Converter {
public:
    Converter(const std::string& from, const std::string& to) : m_handle(libiconv_open(to.c_str(), from.c_str())) {
        if (!IsOpen()) return;
        iconv_fallbacks fallbacks = {ReplaceEachByte, ReplaceCharacter, nullptr, nullptr, nullptr};
        libiconvctl(m_handle, ICONV_SET_FALLBACKS, &fallbacks);
    }
    ~Converter() {
        if (IsOpen()) libiconv_close(m_handle);
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool IsOpen() const { return m_handle != NoIconv(); }

    /// @return whether all of the text was converted; if not, `out` is as it was
    bool Run(const std::string& in, std::string& out) const {
        const std::size_t size = (in.size() + 1) * 2;
        char small[kSmallBuffer];
        const std::unique_ptr<char[]> large(size > sizeof small ? new char[size] : nullptr);
        char* const buffer = large != nullptr ? large.get() : small;
        char* inNext = const_cast<char*>(in.data());
        std::size_t inLeft = in.size();
        char* outNext = buffer;
        std::size_t outLeft = size;
        if (libiconv(m_handle, &inNext, &inLeft, &outNext, &outLeft) == static_cast<std::size_t>(-1)) return false;
        // The buffer may be full to the last byte, so the first NUL is looked for inside it.
        const std::size_t written = size - outLeft;
        const char* const nul = static_cast<const char*>(std::memchr(buffer, '\0', written));
        out.assign(buffer, nul != nullptr ? static_cast<std::size_t>(nul - buffer) : written);
        return true;
    }

private:
    static constexpr std::size_t kSmallBuffer = 512;  // for a name, or a line of text

    libiconv_t const m_handle;
};

/// Converters of one direction. They move from list to list without an allocation.
using Converters = std::list<Converter>;

// The converters that nobody uses at the moment, by source and target. Directions are
// never removed, and the map itself is never destroyed: it serves static destructors, too.
detail::Mutex g_mutex;
std::map<std::string, std::map<std::string, Converters>>* g_pIdle = nullptr;

// In a forked child the mutex is nobody's, and what it guards is whole.
const struct ForkHandlers {
    ForkHandlers() { pthread_atfork(&Lock, &Unlock, &Unlock); }
    static void Lock() ZO_ACQUIRE(g_mutex) { g_mutex.acquire(); }
    static void Unlock() ZO_RELEASE(g_mutex) { g_mutex.release(); }
} g_forkHandlers;

/// A converter for as long as a conversion takes. The one that was given back last is the
/// first to be lent again: a single thread always has the same, whose shift state goes on
/// from call to call.
class Loan {
public:
    Loan(const std::string& from, const std::string& to) {
        if (TakeIdle(from, to)) return;
        // Opened outside the mutex: opening may load a library, and so wait for a thread
        // that loads another one, whose static constructors convert.
        if (!IsCharsetName(from) || !IsCharsetName(to)) return;
        m_converter.emplace_back(from, to);
        if (!m_converter.front().IsOpen()) {
            m_converter.clear();
        } else {
            MakeHome(from, to);
        }
    }
    ~Loan() {
        if (m_pHome == nullptr) return;
        const detail::Guard guard(g_mutex);
        m_pHome->splice(m_pHome->begin(), m_converter);
    }
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;

    /// @return null where there is no such conversion
    const Converter* Get() const { return m_converter.empty() ? nullptr : &m_converter.front(); }

private:
    bool TakeIdle(const std::string& from, const std::string& to) {
        const detail::Guard guard(g_mutex);
        if (g_pIdle == nullptr) return false;
        const auto targets = g_pIdle->find(from);
        if (targets == g_pIdle->end()) return false;
        const auto idle = targets->second.find(to);
        if (idle == targets->second.end() || idle->second.empty()) return false;
        m_pHome = &idle->second;
        m_converter.splice(m_converter.begin(), *m_pHome, m_pHome->begin());
        return true;
    }

    void MakeHome(const std::string& from, const std::string& to) {
        const detail::Guard guard(g_mutex);
        if (g_pIdle == nullptr) g_pIdle = new std::map<std::string, std::map<std::string, Converters>>;
        m_pHome = &(*g_pIdle)[from][to];
    }

    Converters m_converter;         // the one, or none
    Converters* m_pHome = nullptr;  // where it goes afterwards; null when it did not open
};

void ReportFailedOpen(const std::string& from, const std::string& to) {
    constexpr char kFormat[] = "[CodeSetConvert]:iconv_open(%s,%s) failed.\n";
    PrintOut(kFormat, to.c_str(), from.c_str());
    g_log.Print(__LINE__, LOG_LEVEL_ERROR, kFormat, to.c_str(), from.c_str());
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
    CorbaConfigAccess::PeekStrItem("LocalCharset", value);
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

/// Copies where one of the sets is null.
bool ConvertOrCopy(const char* from, const char* to, const std::string& in, std::string& out) {
    if (from != nullptr && to != nullptr) return CodeSetConvert(from, to, in, out);
    out = in;
    return true;
}

/// @return the action's result, or false when it finds no memory
template <class Action>
bool IfMemoryLasts(Action action) {
    try {
        return action();
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool ConvertBetween(const std::string& from, const std::string& to, const std::string& in, std::string& out) {
    {
        const Loan loan(from, to);
        if (const Converter* const converter = loan.Get()) return converter->Run(in, out);
    }
    // No lock is held here: the record's time stamp is converted, too.
    ReportFailedOpen(from, to);
    return false;
}

}  // namespace

bool CodeSetConvert(const std::string& from, const std::string& to, const std::string& in, std::string& out) {
    return IfMemoryLasts([&] {
        if (from == to) {
            out = in;
            return true;
        }
        if (to == kUnknownCharset || from == kUnknownCharset) return true;
        return ConvertBetween(from, to, in, out);
    });
}

bool Local2Utf(std::string& out, const std::string& in) {
    return IfMemoryLasts([&] { return ConvertOrCopy(SwitchedCharset(), kUtf8, in, out); });
}

bool Utf2Local(std::string& out, const std::string& in) {
    return IfMemoryLasts([&] { return ConvertOrCopy(kUtf8, SwitchedCharset(), in, out); });
}

void Convert2UTFforLog(const std::string& in, std::string& out) {
    // Time stamps are plain, so writing a record mostly converts nothing.
    const bool converted = IfMemoryLasts([&] {
        const char* const local = g_localCharsetIsGbk.Get(ReadLocalCharsetIsGbk) ? kGbk : kLatin1;
        // Plain ASCII is the same in UTF-8, whatever the local set.
        return !IsPlainAscii(in) && CodeSetConvert(local, kUtf8, in, out);
    });
    if (!converted) out = in;
}

}  // namespace NS_BUNDLEMGR1
