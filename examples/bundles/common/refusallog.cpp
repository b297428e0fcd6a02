#include "refusallog.h"

#include <algorithm>
#include <new>

namespace alarms {

bool RefusalLog::ShouldTell(const std::string& address, TimePoint now) noexcept {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_told.find(address);
    if (found != m_told.end()) {
        if (now - found->second < kPause) return false;
        found->second = now;
        return true;
    }
    if (m_told.size() >= kMaxAddresses) Forget(now);
    if (m_told.size() >= kMaxAddresses) return false;
    try {
        m_told.emplace(address, now);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

// Those that may be told again. The lock must be held.
void RefusalLog::Forget(TimePoint now) {
    // Not looked for at each refusal: it would cost more than the record it saves.
    if (now < m_nextForget) return;
    m_nextForget = now + kPause;
    for (auto entry = m_told.begin(); entry != m_told.end();) {
        if (now - entry->second < kPause) {
            m_nextForget = std::min(m_nextForget, entry->second + kPause);
            ++entry;
        } else {
            entry = m_told.erase(entry);
        }
    }
}

}  // namespace alarms
