// The agent's CORBA object.
#pragma once

#include <omniORB4/CORBA.h>

#include "alarm.hh"
#include "alarmtable.h"
#include "iteratorpool.h"

namespace corba_bundle {

/// Answers clients from the alarm table. The ORB calls it from many threads at once.
class AgentServant : public POA_NbiAlarm::Agent {
public:
    /// Both must live until the ORB is shut down.
    AgentServant(alarms::AlarmTable& table, IteratorPool& iterators) : m_table(table), m_iterators(iterators) {}

    NbiAlarm::Position getActiveAlarms(CORBA::ULong how_many, NbiAlarm::AlarmSeq_out alarms,
                                       NbiAlarm::AlarmIterator_out rest) override;
    NbiAlarm::Alarm* getAlarm(const char* id) override;
    void acknowledge(const char* id, const char* user) override;

    /// All calls come through here, and return when the reply is on its way.
    CORBA::Boolean _dispatch(omniCallHandle& call) override;

private:
    alarms::AlarmTable& m_table;
    IteratorPool& m_iterators;
};

}  // namespace corba_bundle
