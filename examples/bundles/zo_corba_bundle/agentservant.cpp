#include "agentservant.h"

#include <algorithm>
#include <memory>
#include <string>

#include "idlalarm.h"

namespace corba_bundle {

namespace {

// The name goes on to other clients, among them such as read lines of text.
bool IsUserName(const std::string& text) {
    constexpr std::size_t kLongest = 128;
    return text.size() <= kLongest && std::none_of(text.begin(), text.end(), [](char c) {
               return static_cast<unsigned char>(c) < ' ' || c == 0x7f;
           });
}

}  // namespace

NbiAlarm::Position AgentServant::getActiveAlarms(CORBA::ULong how_many, NbiAlarm::AlarmSeq_out alarms,
                                                 NbiAlarm::AlarmIterator_out rest) {
    const std::shared_ptr<const alarms::AlarmSnapshot> all = m_table.Snapshot();
    const NbiAlarm::Position listed = {m_table.Start(), all->sequence};
    std::size_t next = 0;
    // Held in variables until nothing can fail any more: an exception must not leave a
    // half-made reply behind.
    NbiAlarm::AlarmSeq_var first = NextBatch(all->alarms, next, how_many);
    NbiAlarm::AlarmIterator_var iterator;
    if (next < all->alarms.size()) iterator = m_iterators.Make(all, next);
    alarms = first._retn();
    rest = iterator._retn();
    return listed;
}

NbiAlarm::Alarm* AgentServant::getAlarm(const char* id) {
    alarms::Alarm alarm;
    if (!m_table.Get(id, alarm)) throw NbiAlarm::NoSuchAlarm(id);
    return new NbiAlarm::Alarm(ToIdl(alarm));
}

void AgentServant::acknowledge(const char* id, const char* user) {
    if (!IsUserName(user)) throw CORBA::BAD_PARAM(0, CORBA::COMPLETED_NO);
    if (!m_table.Acknowledge(id, user)) throw NbiAlarm::NoSuchAlarm(id);
}

CORBA::Boolean AgentServant::_dispatch(omniCallHandle& call) {
    IteratorPool::Reply reply(m_iterators);
    const CORBA::Boolean known = POA_NbiAlarm::Agent::_dispatch(call);
    reply.Sent();
    return known;
}

}  // namespace corba_bundle
