#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include <bundlemgr/base.h>

#include "src/base/basefacade/corbaconfigaccess.h"
#include "src/base/converters.h"
#include "src/corelog/corelog.h"
#include "src/platform/standardoutput.h"
#include "src/platform/text.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr std::string_view kUnknownCharset = "UNKOWN";
constexpr char kGbk[] = "GBK";
constexpr char kLatin1[] = "ISO-8859-1";
constexpr char kUtf8[] = "UTF-8";

CoreLog g_log("codesetconvert");

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

/// A converter for as long as a conversion takes.
class Loan {
public:
    Loan(const std::string& from, const std::string& to) : m_home(Converters::Find(from, to)) {
        if (m_home != nullptr) m_converter = m_home->Take();
        if (m_converter != nullptr || !IsCharsetName(from) || !IsCharsetName(to)) return;
        // Opened without a lock: opening may load a library, and so wait for a thread that loads
        // another one, whose static constructors convert.
        auto converter = std::make_unique<Converter>(from, to);
        if (!converter->IsOpen()) return;
        if (m_home == nullptr) m_home = &Converters::Get(from, to);
        m_converter = converter.release();
    }
    ~Loan() {
        if (m_converter != nullptr) m_home->GiveBack(m_converter);
    }
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;

    /// @return null where there is no such conversion
    const Converter* Get() const { return m_converter; }

private:
    Converters* m_home;
    Converter* m_converter = nullptr;
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
