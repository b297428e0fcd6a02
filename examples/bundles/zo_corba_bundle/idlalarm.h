// From the agent's alarms to those of the IDL.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "alarm.h"
#include "alarm.hh"
#include "alarmevent.h"

namespace corba_bundle {

NbiAlarm::Alarm ToIdl(const alarms::Alarm& alarm);

/// @param agentStart of the alarm table whose change it is
NbiAlarm::AlarmChange ToIdl(const alarms::AlarmEvent& event, std::uint64_t agentStart);

/// @param next     first alarm of the batch; moved on behind the last one
/// @param how_many most alarms in it; there may be fewer, so that an ORB takes the message
/// @return the batch, the caller's to delete
NbiAlarm::AlarmSeq* NextBatch(const std::vector<alarms::Alarm>& alarms, std::size_t& next, CORBA::ULong how_many);

}  // namespace corba_bundle
