// The stamps that every record carries.
#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

#include <ace/Time_Value.h>

namespace NS_BUNDLEMGR1 {

/// "Thread " and the calling thread's id, cut to 32 bits and signed.
class RecordThread {
public:
    /// Made once for each thread. In a forked child, its thread has the id of the parent's.
    static const RecordThread& OfThisThread();

    std::string_view Text() const { return {m_text, m_nSize}; }

private:
    RecordThread();

    char m_text[24];
    std::size_t m_nSize;
};

/// Calls `GetZoneTimeStamp` once a second: within one, stamps differ in their
/// microseconds only.
///
/// Thread safety: none.
class TimeStampCache {
public:
    /// Looks which zone is set. To be called before a batch of records.
    void LookAtZone();

    /// @return `GetZoneTimeStamp(time)`, valid until the next call
    const std::string& Get(const ACE_Time_Value& time);

private:
    bool Knows(const ACE_Time_Value& time) const;

    std::string m_strStamp;
    std::string m_strZone;  // the TZ that it was made under
    std::time_t m_nSecond = 0;
    bool m_bReusable = false;
};

}  // namespace NS_BUNDLEMGR1
