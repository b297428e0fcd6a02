// The alarm changes that wait to be pushed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include "alarmevent.h"

namespace corba_bundle {

/// A queue with a limit. Beyond it the oldest change goes: what a client needs most is
/// the latest state, and a gap in the sequence numbers tells it to list the alarms anew.
///
/// Thread-safe: one thread puts in, another takes out, neither waits for the other.
class ChangeQueue {
public:
    explicit ChangeQueue(std::size_t capacity) : m_capacity(capacity) {}

    /// @return false when another change had to go for it, the first time since the
    ///         queue was last empty; the later times are no news
    bool Put(const alarms::AlarmEvent& change) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_changes.push_back(change);
        if (m_changes.size() <= m_capacity) return true;
        m_changes.pop_front();
        return m_dropped++ != 0;
    }

    /// @return the oldest change, or nothing when the queue is empty
    std::optional<alarms::AlarmEvent> Take() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_changes.empty()) return std::nullopt;
        std::optional<alarms::AlarmEvent> oldest(std::move(m_changes.front()));
        m_changes.pop_front();
        return oldest;
    }

    /// @return how many changes had to go since this was last asked
    std::uint64_t TakeDropped() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return std::exchange(m_dropped, 0);
    }

private:
    const std::size_t m_capacity;
    std::mutex m_mutex;
    std::deque<alarms::AlarmEvent> m_changes;
    std::uint64_t m_dropped = 0;
};

}  // namespace corba_bundle
