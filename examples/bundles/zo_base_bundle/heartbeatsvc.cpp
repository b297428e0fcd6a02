// HeartbeatSvc: posts an event every few seconds, a sign of life that other services
// also use as their clock.
#include <atomic>
#include <chrono>
#include <memory>

#include <bundlemgr/kit.h>

#include "alarmevent.h"
#include "alarmtable.h"
#include "heartbeat.h"
#include "settings.h"

namespace {

using alarms::AlarmTable;
using alarms::HeartbeatEvent;
using NS_BUNDLEMGR1::LightEventMgr;
using NS_BUNDLEMGR1::ServiceInterfaceProxy;

constexpr int kDefaultSeconds = 5;
constexpr int kMaxSeconds = 3600;

class HeartbeatImpl : public alarms::Heartbeat {
public:
    std::string GetDescription() override { return "heartbeat of the agent"; }
    void* GetImplementation() override { return this; }
    std::uint64_t Count() override { return m_count; }

    std::uint64_t Next() { return ++m_count; }

private:
    std::atomic<std::uint64_t> m_count{0};
};

class HeartbeatSvc : public zo::Service {
public:
    HeartbeatSvc() : Service("zo_base_bundle", alarms::HEARTBEAT_SERVICE) {}

    int init(int, ACE_TCHAR*[]) override {
        // The first look-up searches the bundles and takes their locks, which the thread
        // must not do while its service is being ended. Later ones take none.
        try {
            m_alarms.GetInterface();
        } catch (const NS_BUNDLEMGR1::InterfaceNotExistException&) {
            ZO_ERROR(m_log, "%s is not there; it stands before %s in svc.cfg\n", alarms::ALARM_SERVICE,
                     alarms::HEARTBEAT_SERVICE);
            return -1;
        }
        const int seconds = alarms::IntSetting("HeartbeatSeconds", kDefaultSeconds, 1, kMaxSeconds, m_log);
        m_interval = std::chrono::seconds(seconds);
        m_heartbeat = Publish(std::make_unique<HeartbeatImpl>());
        m_thread.Start([this] { return Beat(); });
        ZO_INFO(m_log, "a heartbeat every %d seconds\n", seconds);
        return 0;
    }

    void ExitThreads() override { m_thread.Stop(); }

private:
    // On the service's thread.
    std::chrono::milliseconds Beat() {
        LightEventMgr::Instance()->Push_Msg(alarms::EVENT_HEARTBEAT,
                                            new HeartbeatEvent(m_heartbeat->Next(), m_alarms->Size()), 0);
        return m_interval;
    }

    zo::Log m_log{alarms::HEARTBEAT_SERVICE, "zo_base_bundle", alarms::HEARTBEAT_SERVICE};
    ServiceInterfaceProxy<AlarmTable> m_alarms{alarms::ALARM_SERVICE};
    std::chrono::milliseconds m_interval{};
    HeartbeatImpl* m_heartbeat = nullptr;  // the published interface
    zo::ServiceThread m_thread{m_log};
};

}  // namespace

ZO_SERVICE_FACTORY(HeartbeatSvc, HeartbeatSvc);
