#include "src/log/recordstamp.h"

#include <charconv>
#include <cstdint>
#include <cstdlib>

#include <pthread.h>

#include <bundlemgr/base.h>

#include "src/platform/text.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr std::size_t kDigits = 6;  // of the microseconds, at the end of a stamp

bool IsFraction(long microseconds) {
    return microseconds >= 0 && microseconds < 1000000;
}

std::string Fraction(long microseconds) {
    const std::string digits = std::to_string(microseconds);
    return "." + std::string(kDigits - digits.size(), '0') + digits;
}

}  // namespace

std::string RecordThread() {
    constexpr char kName[] = "Thread ";
    constexpr std::size_t kIdSize = 11;  // of the longest, with its sign
    const auto id = static_cast<std::uint32_t>(pthread_self());
    char text[sizeof kName + kIdSize];
    char* const digits = std::copy(kName, kName + sizeof kName - 1, text);
    return std::string(text, std::to_chars(digits, text + sizeof text, static_cast<std::int32_t>(id)).ptr);
}

const std::string& TimeStampCache::Get(const ACE_Time_Value& time) {
    const char* const variable = std::getenv("TZ");
    const char* const zone = variable != nullptr ? variable : "/etc/localtime";
    if (Knows(time, zone)) {
        long rest = time.usec();
        for (std::size_t i = 1; i <= kDigits; ++i, rest /= 10) {
            m_strStamp[m_strStamp.size() - i] = static_cast<char>('0' + rest % 10);
        }
        return m_strStamp;
    }
    m_bReusable = false;
    m_strStamp = GetZoneTimeStamp(time);
    m_strZone = zone;
    m_nSecond = time.sec();
    // In ASCII the conversion of code sets has nothing to do and nothing to report.
    m_bReusable = IsFraction(time.usec()) && EndsWith(m_strStamp, Fraction(time.usec())) && IsPlainAscii(m_strStamp);
    return m_strStamp;
}

bool TimeStampCache::Knows(const ACE_Time_Value& time, const char* zone) const {
    return m_bReusable && time.sec() == m_nSecond && IsFraction(time.usec()) && m_strZone == zone;
}

}  // namespace NS_BUNDLEMGR1
