#include "lossreport.h"

#include <ctime>

using NS_BUNDLEMGR1::LogLoss;

namespace {

constexpr std::chrono::seconds kPause(60);

std::string LocalTime(const ACE_Time_Value& moment) {
    const std::time_t seconds = moment.sec();
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

}  // namespace

std::string LossReport::Next(const LogLoss& loss, TimePoint now) {
    const bool losing = loss.since != ACE_Time_Value::zero;
    if (m_told && !losing) {
        m_told = false;
        const unsigned long long lost = loss.records - m_counted;
        m_counted = loss.records;
        return "the log is kept again, " + std::to_string(lost) + " records were lost";
    }
    // A loss that was over before anybody looked is told as one that is.
    const bool untold = !m_told && (losing || loss.records != m_counted);
    return untold && now >= m_next ? Begin(loss, now) : "";
}

std::string LossReport::Begin(const LogLoss& loss, TimePoint now) {
    m_next = now + kPause;
    m_told = true;
    if (loss.since == ACE_Time_Value::zero) return Next(loss, now);
    return "the log loses records since " + LocalTime(loss.since);
}
