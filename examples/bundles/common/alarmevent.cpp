#include "alarmevent.h"

namespace alarms {

AlarmEvent::AlarmEvent(AlarmChange change, const Alarm& alarm, const std::vector<std::string>& attributes,
                       std::uint64_t sequence)
    : NS_BUNDLEMGR1::LightEventParam(true),
      m_change(change),
      m_alarm(alarm),
      m_attributes(attributes),
      m_sequence(sequence) {}

AlarmEvent::~AlarmEvent() = default;

}  // namespace alarms
