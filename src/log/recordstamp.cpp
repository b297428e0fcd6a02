#include "src/log/recordstamp.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <pthread.h>

#include <bundlemgr/base.h>

#include "src/platform/text.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr std::size_t kDigits = 6;  // of the microseconds, at the end of a stamp

bool IsFraction(long microseconds) {
    return microseconds >= 0 && microseconds < 1000000;
}

// All numbers of two digits, one after the other.
constexpr std::array<char, 200> MakePairs() {
    std::array<char, 200> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i)
        pairs[i] = static_cast<char>('0' + (i % 2 == 0 ? i / 20 : i / 2 % 10));
    return pairs;
}

constexpr std::array<char, 200> kPairs = MakePairs();

void WriteFraction(long microseconds, char* digits) {
    const auto number = static_cast<std::uint32_t>(microseconds);
    std::memcpy(digits, &kPairs[2 * std::size_t{number / 10000}], 2);
    std::memcpy(digits + 2, &kPairs[2 * std::size_t{number / 100 % 100}], 2);
    std::memcpy(digits + 4, &kPairs[2 * std::size_t{number % 100}], 2);
}

std::string Fraction(long microseconds) {
    std::string fraction = ".000000";
    WriteFraction(microseconds, fraction.data() + 1);
    return fraction;
}

// Without TZ, the file that the C library reads instead.
const char* Zone() {
    const char* const zone = std::getenv("TZ");
    return zone != nullptr ? zone : "/etc/localtime";
}

}  // namespace

const RecordThread& RecordThread::OfThisThread() {
    static thread_local const RecordThread t_thread;
    return t_thread;
}

RecordThread::RecordThread() : m_text() {
    constexpr std::string_view kName = "Thread ";
    const auto id = static_cast<std::uint32_t>(pthread_self());
    char* const digits = std::copy(kName.begin(), kName.end(), m_text);
    const char* const end = std::to_chars(digits, m_text + sizeof m_text, static_cast<std::int32_t>(id)).ptr;
    m_nSize = static_cast<std::size_t>(end - m_text);
}

void TimeStampCache::LookAtZone() {
    if (m_bReusable && std::strcmp(m_strZone.c_str(), Zone()) != 0) m_bReusable = false;
}

const std::string& TimeStampCache::Get(const ACE_Time_Value& time) {
    if (Knows(time)) {
        WriteFraction(time.usec(), m_strStamp.data() + m_strStamp.size() - kDigits);
        return m_strStamp;
    }
    m_bReusable = false;
    m_strZone = Zone();
    m_strStamp = GetZoneTimeStamp(time);
    m_nSecond = time.sec();
    // In ASCII the conversion of code sets has nothing to do and nothing to report.
    m_bReusable = IsFraction(time.usec()) && EndsWith(m_strStamp, Fraction(time.usec())) && IsPlainAscii(m_strStamp);
    return m_strStamp;
}

bool TimeStampCache::Knows(const ACE_Time_Value& time) const {
    return m_bReusable && time.sec() == m_nSecond && IsFraction(time.usec());
}

}  // namespace NS_BUNDLEMGR1
