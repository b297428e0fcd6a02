// What the pure interfaces and the small events need of code. It stands here, in one
// library that outlives all services, and not in each library that uses them.
#include "alarmtable.h"
#include "feed.h"
#include "heartbeat.h"
#include "statistics.h"

namespace alarms {

AlarmTable::~AlarmTable() = default;

Feed::~Feed() = default;

Heartbeat::~Heartbeat() = default;

Statistics::~Statistics() = default;

HeartbeatEvent::HeartbeatEvent(std::uint64_t count, std::size_t activeAlarms)
    : NS_BUNDLEMGR1::LightEventParam(true), m_count(count), m_activeAlarms(activeAlarms) {}

HeartbeatEvent::~HeartbeatEvent() = default;

}  // namespace alarms
