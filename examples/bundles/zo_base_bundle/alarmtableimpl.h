// The alarm table that AlarmSvc publishes.
#pragma once

#include <map>
#include <memory>
#include <mutex>

#include "alarmtable.h"

namespace alarms {

/// The one implementation of `AlarmTable`.
///
/// Each alarm is an object that its schema describes: a change marks the attributes it
/// touches, and the marks tell the event which ones to name.
///
/// The event of a change is posted under the table's lock. That keeps the events in the
/// order of the changes; posting never waits for a handler, so nobody waits long.
class AlarmTableImpl : public AlarmTable {
public:
    AlarmTableImpl();

    std::string GetDescription() override { return "table of active alarms"; }
    void* GetImplementation() override { return this; }

    bool Raise(const Alarm& alarm) override;
    bool Change(const std::string& id, const std::vector<NS_BUNDLEMGR1::NameValueStru>& attributes) override;
    bool Clear(const std::string& id) override;
    bool Acknowledge(const std::string& id, const std::string& user) override;
    bool Get(const std::string& id, Alarm& alarm) override;
    std::uint64_t List(std::vector<Alarm>& alarms) override;
    std::shared_ptr<const AlarmSnapshot> Snapshot() override;
    std::uint64_t Start() override { return m_start; }
    std::size_t Size() override;

private:
    struct Entry {
        Alarm alarm;
        ObjectSchema_T schema;  // flags of the change under way, none between changes
    };

    void CopyTo(std::vector<Alarm>& alarms) const;
    void Update(Entry& entry, const Alarm& changed);
    void Post(AlarmChange change, const Entry& entry);

    const std::uint64_t m_start;
    std::mutex m_mutex;  // guards all that follows
    std::map<std::string, Entry> m_entries;
    std::uint64_t m_sequence = 0;
    std::weak_ptr<const AlarmSnapshot> m_snapshot;  // the last one, for as long as somebody has it
};

}  // namespace alarms
