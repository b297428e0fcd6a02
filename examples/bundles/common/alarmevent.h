// The event that tells of every change of the alarm table.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <bundlemgr/event.h>

#include "alarm.h"

namespace alarms {

/// Identifiers of the agent's events; those below 1000 are left to the library.
constexpr int EVENT_ALARM = 1001;      ///< Parameter: `AlarmEvent`.
constexpr int EVENT_HEARTBEAT = 1002;  ///< Parameter: `HeartbeatEvent` (heartbeat.h).

/// One change of one alarm. Deleted by the event manager after the last handler, so a
/// handler copies what it wants to keep. It carries a copy of the alarm: the table may
/// have moved on by the time the event is handled.
class ZO_PLUGIN_EXPORT AlarmEvent : public NS_BUNDLEMGR1::LightEventParam {
public:
    AlarmEvent(AlarmChange change, const Alarm& alarm, const std::vector<std::string>& attributes,
               std::uint64_t sequence);
    ~AlarmEvent() override;

    AlarmChange m_change;
    Alarm m_alarm;                          ///< After the change; of a cleared alarm its last state.
    std::vector<std::string> m_attributes;  ///< Names of those that changed: all of a raised alarm, none of a cleared.
    std::uint64_t m_sequence;               ///< Numbers the changes of the table: 1, 2, 3 ... without a gap.
};

}  // namespace alarms
