// HeartbeatSvc: posts an event every few seconds, a sign of life that other services
// also use as their clock.
#include <atomic>
#include <chrono>

#include "alarmevent.h"
#include "alarmtable.h"
#include "heartbeat.h"
#include "servicelog.h"
#include "servicethread.h"
#include "settings.h"

namespace {

using alarms::AlarmTable;
using alarms::HeartbeatEvent;
using NS_BUNDLEMGR1::LightEventMgr;
using NS_BUNDLEMGR1::ServiceInterfaceProxy;
using NS_BUNDLEMGR1::ServiceObjectBase;

constexpr int kStandardSeconds = 5;
constexpr int kMostSeconds = 3600;

class HeartbeatImpl : public alarms::Heartbeat {
public:
    std::string GetDescription() override { return "heartbeat of the agent"; }
    void* GetImplementation() override { return this; }
    std::uint64_t Count() override { return m_count; }

    std::uint64_t Next() { return ++m_count; }

private:
    std::atomic<std::uint64_t> m_count{0};
};

class HeartbeatSvc : public ServiceObjectBase {
public:
    HeartbeatSvc() : ServiceObjectBase("zo_base_bundle", alarms::HEARTBEAT_SERVICE) {}
    ~HeartbeatSvc() override { Stop(); }

    int init(int, ACE_TCHAR*[]) override {
        // The first look-up searches the bundles and takes their locks, which the thread
        // must not do while its service is being ended. Later ones take none.
        try {
            m_alarms.GetInterface();
        } catch (const NS_BUNDLEMGR1::InterfaceNotExistException&) {
            m_log.Error(__LINE__, "%s is not there; it stands before %s in svc.cfg", alarms::ALARM_SERVICE,
                        alarms::HEARTBEAT_SERVICE);
            return -1;
        }
        const int seconds = alarms::IntSetting("HeartbeatSeconds", kStandardSeconds, 1, kMostSeconds, m_log);
        m_interval = std::chrono::seconds(seconds);
        SetInterface();
        m_thread.Start([this] { return Beat(); });
        m_log.Info(__LINE__, "a heartbeat every %d seconds", seconds);
        return 0;
    }

    int fini() override {
        Stop();
        return ServiceObjectBase::fini();
    }

    void SetInterface() override { m_pInterface = m_heartbeat = new HeartbeatImpl; }

    void ExitThreads() override { m_thread.Stop(); }

private:
    // On the service's thread.
    std::chrono::milliseconds Beat() {
        LightEventMgr::Instance()->Push_Msg(alarms::EVENT_HEARTBEAT,
                                            new HeartbeatEvent(m_heartbeat->Next(), m_alarms->Size()), 0);
        return m_interval;
    }

    // Also when the service is removed without ExitThreads: its code is unmapped next,
    // and no thread may be left in it.
    void Stop() {
        m_thread.Stop();
        if (m_pInterface == nullptr) return;
        NS_BUNDLEMGR1::SetIFBuf(alarms::HEARTBEAT_SERVICE, nullptr);
        RemoveInterface();
    }

    alarms::ServiceLog m_log{"zo_base_bundle", alarms::HEARTBEAT_SERVICE, "heartbeatsvc"};
    ServiceInterfaceProxy<AlarmTable> m_alarms{alarms::ALARM_SERVICE};
    std::chrono::milliseconds m_interval{};
    HeartbeatImpl* m_heartbeat = nullptr;  // the published interface
    alarms::ServiceThread m_thread{m_log};
};

}  // namespace

ZO_SERVICE_FACTORY(HeartbeatSvc, HeartbeatSvc);
