#include "src/corelog/losscounter.h"

#include <atomic>

#include <bundlemgr/log.h>

namespace NS_BUNDLEMGR1 {

namespace {

constexpr std::int64_t kMicroseconds = 1000000;  // in a second

std::atomic<std::uint64_t> g_lost{0};
std::atomic<std::int64_t> g_since{0};  // microseconds since the epoch; 0: nothing is being lost

}  // namespace

void LossCounter::Lost(std::uint64_t records, const ACE_Time_Value& first) {
    if (records == 0) return;
    g_lost.fetch_add(records, std::memory_order_relaxed);
    std::int64_t none = 0;
    const std::int64_t since = first.sec() * kMicroseconds + first.usec();
    g_since.compare_exchange_strong(none, since, std::memory_order_relaxed);
}

void LossCounter::Kept() {
    if (g_since.load(std::memory_order_relaxed) != 0) g_since.store(0, std::memory_order_relaxed);
}

void LossCounter::Reset() {
    g_lost.store(0, std::memory_order_relaxed);
    g_since.store(0, std::memory_order_relaxed);
}

LogLoss GetLogLoss() {
    const std::int64_t since = g_since.load(std::memory_order_relaxed);
    LogLoss loss;
    loss.records = g_lost.load(std::memory_order_relaxed);
    loss.since = ACE_Time_Value(since / kMicroseconds, since % kMicroseconds);
    return loss;
}

}  // namespace NS_BUNDLEMGR1
