#include "src/log/recordstamp.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include <pthread.h>

#include <bundlemgr/base.h>

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

// Where code-set conversion has nothing to do and nothing to report.
bool IsAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

std::string RecordThread() {
    const auto id = static_cast<std::uint32_t>(pthread_self());
    return "Thread " + std::to_string(static_cast<std::int32_t>(id));
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
    m_bReusable = IsFraction(time.usec()) && EndsWith(m_strStamp, Fraction(time.usec())) && IsAscii(m_strStamp);
    return m_strStamp;
}

bool TimeStampCache::Knows(const ACE_Time_Value& time, const char* zone) const {
    return m_bReusable && time.sec() == m_nSecond && IsFraction(time.usec()) && m_strZone == zone;
}

}  // namespace NS_BUNDLEMGR1
