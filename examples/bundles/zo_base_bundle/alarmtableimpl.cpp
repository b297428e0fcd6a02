#include "alarmtableimpl.h"

#include <chrono>
#include <memory>

#include "alarmevent.h"

using NS_BUNDLEMGR1::LightEventMgr;
using NS_BUNDLEMGR1::NameValueStru;

namespace alarms {

namespace {

/// An agent takes longer than this to start, so no two have the same.
std::uint64_t MicrosecondsSinceTheEpoch() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

void MarkAll(ObjectSchema_T& schema) {
    for (const std::string& name : AttributeNames()) __SetDirty(schema, name.c_str());
}

void MarkDifferences(ObjectSchema_T& schema, const Alarm& before, const Alarm& after) {
    for (const std::string& name : AttributeNames()) {
        if (AttributeText(before, name) != AttributeText(after, name)) __SetDirty(schema, name.c_str());
    }
}

std::vector<std::string> MarkedAttributes(const ObjectSchema_T& schema) {
    std::vector<std::string> marked;
    for (const std::string& name : AttributeNames()) {
        if (__IsDirty(schema, name.c_str())) marked.push_back(name);
    }
    return marked;
}

}  // namespace

AlarmTableImpl::AlarmTableImpl() : m_start(MicrosecondsSinceTheEpoch()) {}

bool AlarmTableImpl::Raise(const Alarm& alarm) {
    if (alarm.id.empty()) return false;
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_entries.find(alarm.id);
    if (found != m_entries.end()) {
        Alarm changed = alarm;
        changed.ackUser = found->second.alarm.ackUser;
        Update(found->second, changed);
        return true;
    }
    Entry& entry = m_entries[alarm.id];
    entry.alarm = alarm;
    entry.schema = MakeAlarmSchema();
    MarkAll(entry.schema);
    Post(ALARM_RAISED, entry);
    entry.schema = MakeAlarmSchema();
    return true;
}

bool AlarmTableImpl::Change(const std::string& id, const std::vector<NameValueStru>& attributes) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_entries.find(id);
    if (found == m_entries.end()) return false;
    Alarm changed = found->second.alarm;
    for (const NameValueStru& attribute : attributes) {
        if (!SetAttribute(changed, attribute.name, attribute.value)) return false;
    }
    Update(found->second, changed);
    return true;
}

bool AlarmTableImpl::Clear(const std::string& id) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_entries.find(id);
    if (found == m_entries.end()) return false;
    Post(ALARM_CLEARED, found->second);
    m_entries.erase(found);
    return true;
}

bool AlarmTableImpl::Acknowledge(const std::string& id, const std::string& user) {
    return Change(id, {{"ack.user", user}});
}

bool AlarmTableImpl::Get(const std::string& id, Alarm& alarm) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_entries.find(id);
    if (found == m_entries.end()) return false;
    alarm = found->second.alarm;
    return true;
}

std::uint64_t AlarmTableImpl::List(std::vector<Alarm>& alarms) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    CopyTo(alarms);
    return m_sequence;
}

std::shared_ptr<const AlarmSnapshot> AlarmTableImpl::Snapshot() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    std::shared_ptr<const AlarmSnapshot> last = m_snapshot.lock();
    if (last != nullptr && last->sequence == m_sequence) return last;
    const auto made = std::make_shared<AlarmSnapshot>();
    CopyTo(made->alarms);
    made->sequence = m_sequence;
    m_snapshot = made;
    return made;
}

std::size_t AlarmTableImpl::Size() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_entries.size();
}

// The lock must be held.
void AlarmTableImpl::CopyTo(std::vector<Alarm>& alarms) const {
    alarms.clear();
    alarms.reserve(m_entries.size());
    for (const auto& entry : m_entries) alarms.push_back(entry.second.alarm);
}

// The lock must be held.
void AlarmTableImpl::Update(Entry& entry, const Alarm& changed) {
    MarkDifferences(entry.schema, entry.alarm, changed);
    entry.alarm = changed;
    if (MarkedAttributes(entry.schema).empty()) return;
    Post(ALARM_CHANGED, entry);
    // Marks are only ever set: the way to none is a fresh description.
    entry.schema = MakeAlarmSchema();
}

// The lock must be held.
void AlarmTableImpl::Post(AlarmChange change, const Entry& entry) {
    auto event = std::make_unique<AlarmEvent>(change, entry.alarm, MarkedAttributes(entry.schema), ++m_sequence);
    LightEventMgr::Instance()->Push_Msg(EVENT_ALARM, event.release(), 0);
}

}  // namespace alarms
