// StatisticsSvc: counts alarms from the events that tell of their changes, and logs the
// counts on a heartbeat when they have moved.
#include <map>
#include <memory>
#include <mutex>

#include <bundlemgr/kit.h>

#include "alarmevent.h"
#include "alarmtable.h"
#include "feed.h"
#include "heartbeat.h"
#include "statistics.h"

namespace {

using alarms::Alarm;
using alarms::AlarmEvent;
using alarms::AlarmTable;
using alarms::Feed;
using alarms::HeartbeatEvent;
using alarms::Severity;
using NS_BUNDLEMGR1::LightEventParam;
using NS_BUNDLEMGR1::ServiceInterfaceProxy;

class StatisticsImpl : public alarms::Statistics {
public:
    std::string GetDescription() override { return "counts of alarms"; }
    void* GetImplementation() override { return this; }

    Counters Count() override {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_counters;
    }

    // Begins with what is in the table. The events that it contains may still be on
    // their way: `Take` passes over them. The caller keeps events out until then.
    void Begin(AlarmTable& table) {
        std::vector<Alarm> active;
        const std::uint64_t sequence = table.List(active);
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_sequence = sequence;
        for (const Alarm& alarm : active) SetSeverity(alarm);
    }

    void Take(const AlarmEvent& event) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (event.m_sequence <= m_sequence) return;
        m_sequence = event.m_sequence;
        switch (event.m_change) {
            case alarms::ALARM_RAISED:
                ++m_counters.raised;
                SetSeverity(event.m_alarm);
                break;
            case alarms::ALARM_CHANGED:
                ++m_counters.changed;
                SetSeverity(event.m_alarm);
                break;
            case alarms::ALARM_CLEARED:
                ++m_counters.cleared;
                Forget(event.m_alarm.id);
                break;
        }
    }

private:
    void SetSeverity(const Alarm& alarm) {
        Forget(alarm.id);
        m_severities[alarm.id] = alarm.severity;
        ++Active(alarm.severity);
    }

    void Forget(const std::string& id) {
        const auto known = m_severities.find(id);
        if (known == m_severities.end()) return;
        --Active(known->second);
        m_severities.erase(known);
    }

    std::uint64_t& Active(Severity severity) { return m_counters.active.at(static_cast<std::size_t>(severity)); }

    std::mutex m_mutex;  // guards all that follows
    Counters m_counters;
    std::map<std::string, Severity> m_severities;  // of the active alarms
    std::uint64_t m_sequence = 0;                  // of the last change counted
};

class StatisticsSvc : public zo::Service {
public:
    StatisticsSvc() : Service("zo_domain_bundle", alarms::STATISTICS_SERVICE) {}

    int init(int, ACE_TCHAR*[]) override {
        // Looked up here and not in the handler: the first look-up takes locks that are
        // held while a service is being ended. Later ones take none.
        AlarmTable* table = nullptr;
        try {
            table = ServiceInterfaceProxy<AlarmTable>(alarms::ALARM_SERVICE).GetInterface();
            m_feed.GetInterface();
        } catch (const NS_BUNDLEMGR1::InterfaceNotExistException&) {
            ZO_ERROR(m_log, "%s or %s is not there; both come before %s\n", alarms::ALARM_SERVICE, alarms::FEED_SERVICE,
                     alarms::STATISTICS_SERVICE);
            return -1;
        }
        m_statistics = Publish(std::make_unique<StatisticsImpl>());
        // No event between the two steps may be handled before the second is done.
        const std::lock_guard<std::mutex> guard(m_beginMutex);
        m_alarmEvents.Open(alarms::EVENT_ALARM, [this](LightEventParam* param) { OnAlarm(param); });
        m_statistics->Begin(*table);
        m_heartbeats.Open(alarms::EVENT_HEARTBEAT, [this](LightEventParam* param) { OnHeartbeat(param); });
        return 0;
    }

    // It has no thread of its own; the event manager's must leave it alone, though.
    void ExitThreads() override {
        m_heartbeats.Close();
        m_alarmEvents.Close();
    }

private:
    // On the event manager's thread.
    void OnAlarm(LightEventParam* param) {
        const std::lock_guard<std::mutex> guard(m_beginMutex);
        const auto* const event = dynamic_cast<AlarmEvent*>(param);
        if (event != nullptr) m_statistics->Take(*event);
    }

    // On the event manager's thread.
    void OnHeartbeat(LightEventParam* param) {
        if (dynamic_cast<HeartbeatEvent*>(param) == nullptr) return;
        const alarms::Statistics::Counters now = m_statistics->Count();
        const std::uint64_t changes = now.raised + now.changed + now.cleared;
        if (changes == m_loggedChanges) return;
        m_loggedChanges = changes;
        const Feed::Counters feed = m_feed->Count();
        ZO_INFO(m_log,
                "active: %llu critical, %llu major, %llu minor, %llu warning, %llu indeterminate; so far: %llu "
                "raised, %llu changed, %llu cleared; feed: %llu lines applied, %llu skipped\n",
                Number(now.active[alarms::SEVERITY_CRITICAL]), Number(now.active[alarms::SEVERITY_MAJOR]),
                Number(now.active[alarms::SEVERITY_MINOR]), Number(now.active[alarms::SEVERITY_WARNING]),
                Number(now.active[alarms::SEVERITY_INDETERMINATE]), Number(now.raised), Number(now.changed),
                Number(now.cleared), Number(feed.applied), Number(feed.rejected));
    }

    static unsigned long long Number(std::uint64_t count) { return count; }

    zo::Log m_log{alarms::STATISTICS_SERVICE, "zo_domain_bundle", alarms::STATISTICS_SERVICE};
    ServiceInterfaceProxy<Feed> m_feed{alarms::FEED_SERVICE};
    StatisticsImpl* m_statistics = nullptr;  // the published interface
    std::mutex m_beginMutex;
    std::uint64_t m_loggedChanges = 0;
    zo::EventSubscription m_alarmEvents;
    zo::EventSubscription m_heartbeats;
};

}  // namespace

ZO_SERVICE_FACTORY(StatisticsSvc, StatisticsSvc);
