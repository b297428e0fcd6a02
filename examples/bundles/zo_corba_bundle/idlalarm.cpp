#include "idlalarm.h"

#include <algorithm>

namespace corba_bundle {

namespace {

// An ORB refuses messages beyond a size, omniORB those of more than 2 MB unless it is
// configured otherwise.
constexpr std::size_t kMaxAlarms = 1000;
constexpr std::size_t kMaxBytes = 1024 * 1024;
constexpr std::size_t kBytesBesideTexts = 100;  // lengths, padding, the severity

// A severity is converted by its number.
constexpr bool SameNumber(NbiAlarm::Severity idl, alarms::Severity own) {
    return static_cast<int>(idl) == static_cast<int>(own);
}
static_assert(SameNumber(NbiAlarm::INDETERMINATE, alarms::SEVERITY_INDETERMINATE));
static_assert(SameNumber(NbiAlarm::CRITICAL, alarms::SEVERITY_CRITICAL));
static_assert(SameNumber(NbiAlarm::MAJOR, alarms::SEVERITY_MAJOR));
static_assert(SameNumber(NbiAlarm::MINOR, alarms::SEVERITY_MINOR));
static_assert(SameNumber(NbiAlarm::WARNING, alarms::SEVERITY_WARNING));

NbiAlarm::ChangeKind ToIdl(alarms::AlarmChange change) {
    switch (change) {
        case alarms::ALARM_RAISED:
            return NbiAlarm::RAISED;
        case alarms::ALARM_CHANGED:
            return NbiAlarm::CHANGED;
        case alarms::ALARM_CLEARED:
            return NbiAlarm::CLEARED;
    }
    return NbiAlarm::CHANGED;
}

std::size_t Bytes(const alarms::Alarm& alarm) {
    return kBytesBesideTexts + alarm.id.size() + alarm.object.size() + alarm.cause.size() + alarm.time.size() +
           alarm.text.size() + alarm.ackUser.size();
}

/// How many alarms from `next` on go into one message: one at least, if there is one.
std::size_t CountThatFits(const std::vector<alarms::Alarm>& alarms, std::size_t next) {
    const std::size_t most = std::min(alarms.size() - next, kMaxAlarms);
    std::size_t count = 0;
    for (std::size_t bytes = 0; count < most; ++count) {
        bytes += Bytes(alarms[next + count]);
        if (bytes > kMaxBytes && count > 0) break;
    }
    return count;
}

}  // namespace

NbiAlarm::Alarm ToIdl(const alarms::Alarm& alarm) {
    NbiAlarm::Alarm result;
    result.id = alarm.id.c_str();
    result.managedObject = alarm.object.c_str();
    result.perceivedSeverity = static_cast<NbiAlarm::Severity>(alarm.severity);
    result.probableCause = alarm.cause.c_str();
    result.eventTime = alarm.time.c_str();
    result.additionalText = alarm.text.c_str();
    result.acknowledgedBy = alarm.ackUser.c_str();
    return result;
}

NbiAlarm::AlarmChange ToIdl(const alarms::AlarmEvent& event, std::uint64_t agentStart) {
    NbiAlarm::AlarmChange result;
    result.where.agentStart = agentStart;
    result.where.sequenceNumber = event.m_sequence;
    result.kind = ToIdl(event.m_change);
    result.changedAttributes.length(static_cast<CORBA::ULong>(event.m_attributes.size()));
    for (CORBA::ULong i = 0; i < result.changedAttributes.length(); ++i) {
        result.changedAttributes[i] = event.m_attributes[i].c_str();
    }
    result.theAlarm = ToIdl(event.m_alarm);
    return result;
}

NbiAlarm::AlarmSeq* NextBatch(const std::vector<alarms::Alarm>& alarms, std::size_t& next, CORBA::ULong how_many) {
    const std::size_t count = std::min(std::size_t{how_many}, CountThatFits(alarms, next));
    NbiAlarm::AlarmSeq_var batch = new NbiAlarm::AlarmSeq;
    batch->length(static_cast<CORBA::ULong>(count));
    for (CORBA::ULong i = 0; i < count; ++i) batch[i] = ToIdl(alarms[next + i]);
    next += count;
    return batch._retn();
}

}  // namespace corba_bundle
