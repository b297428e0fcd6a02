// The interface that AlarmSvc publishes: the table of active alarms.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <bundlemgr/base.h>
#include <bundlemgr/bundle.h>

#include "alarm.h"

namespace alarms {

/// Name of the service that publishes it, for `ServiceInterfaceProxy<AlarmTable>`.
constexpr char ALARM_SERVICE[] = "AlarmSvc";

/// The active alarms at one moment.
struct AlarmSnapshot {
    std::vector<Alarm> alarms;   ///< Ordered by id.
    std::uint64_t sequence = 0;  ///< Number of the last change that they contain; 0: none yet.
};

/// The active alarms. Every change posts an `AlarmEvent`, in the order of the changes.
///
/// How to follow the table without gap or duplicate: subscribe to `EVENT_ALARM`, then
/// take a `List`; ignore every event whose sequence number is not above the one that
/// `List` returned.
///
/// Thread safety: every operation may be called from any thread; none waits for an
/// event handler.
class ZO_PLUGIN_EXPORT AlarmTable : public NS_BUNDLEMGR1::ServiceInterface {
public:
    ~AlarmTable() override;

    /// Adds an alarm. One of that id that is active already takes over the new
    /// values instead, which is a change, or nothing at all when they are the same; its
    /// acknowledgement stays.
    /// @return false, and nothing happens, when the id is empty
    virtual bool Raise(const Alarm& alarm) = 0;

    /// Sets attributes. Those that have the value already do not count as changed;
    /// when none is left, no event is posted.
    /// @param id         of an active alarm
    /// @param attributes name (see `AttributeNames`) and text of each
    /// @return false, and nothing happens, when no such alarm is active or one of the
    ///         attributes is not valid (see `SetAttribute`)
    virtual bool Change(const std::string& id, const std::vector<NS_BUNDLEMGR1::NameValueStru>& attributes) = 0;

    /// Takes an alarm out of the table.
    /// @return false when no such alarm is active
    virtual bool Clear(const std::string& id) = 0;

    /// Notes that `user` takes care of the alarm: a change of "ack.user".
    /// @return false when no such alarm is active
    virtual bool Acknowledge(const std::string& id, const std::string& user) = 0;

    /// @param alarm receives a copy; untouched when no such alarm is active
    /// @return whether it is active
    virtual bool Get(const std::string& id, Alarm& alarm) = 0;

    /// @param alarms replaced by copies of all active alarms, ordered by id
    /// @return the sequence number of the last change that they contain; 0: none yet
    virtual std::uint64_t List(std::vector<Alarm>& alarms) = 0;

    /// The same for who keeps the list for a while.
    /// @return shared with everybody who has asked since the last change and still has it
    virtual std::shared_ptr<const AlarmSnapshot> Snapshot() = 0;

    /// @return what tells this table apart from that of any other run of the agent, whose
    ///         sequence numbers begin with 1, too
    virtual std::uint64_t Start() = 0;

    /// @return the number of active alarms
    virtual std::size_t Size() = 0;
};

}  // namespace alarms
