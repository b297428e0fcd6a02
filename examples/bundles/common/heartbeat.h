// The heartbeat of the agent: an event and the interface of the service that posts it.
#pragma once

#include <cstddef>
#include <cstdint>

#include <bundlemgr/bundle.h>
#include <bundlemgr/event.h>

namespace alarms {

constexpr char HEARTBEAT_SERVICE[] = "HeartbeatSvc";

/// Parameter of `EVENT_HEARTBEAT`; deleted by the event manager.
class ZO_PLUGIN_EXPORT HeartbeatEvent : public NS_BUNDLEMGR1::LightEventParam {
public:
    HeartbeatEvent(std::uint64_t count, std::size_t activeAlarms);
    ~HeartbeatEvent() override;

    std::uint64_t m_count;       ///< 1, 2, 3 ...
    std::size_t m_activeAlarms;  ///< In the table at that moment.
};

/// Thread safety: every operation may be called from any thread.
class ZO_PLUGIN_EXPORT Heartbeat : public NS_BUNDLEMGR1::ServiceInterface {
public:
    ~Heartbeat() override;

    /// @return how many heartbeats have been posted
    virtual std::uint64_t Count() = 0;
};

}  // namespace alarms
