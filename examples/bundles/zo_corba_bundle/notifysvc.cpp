// NotifySvc: pushes every change of the alarm table into an event channel.
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <memory>
#include <optional>
#include <string>

#include <omniORB4/CORBA.h>

#include <bundlemgr/base.h>
#include <bundlemgr/bundle.h>
#include <bundlemgr/kit.h>

#include "alarm.hh"
#include "alarmevent.h"
#include "alarmtable.h"
#include "changequeue.h"
#include "corbainterfaces.h"
#include "eventchannel.h"
#include "idlalarm.h"
#include "peer.h"
#include "settings.h"

using NS_BUNDLEMGR1::CorbaConfigItems;
using NS_BUNDLEMGR1::LightEventParam;
using NS_BUNDLEMGR1::ServiceInterfaceProxy;

namespace corba_bundle {

namespace {

using std::chrono::milliseconds;

constexpr char kChannel[] = "AlarmChannel";

// While nothing changes: is the channel still there? Clients need it before the next
// change, or they miss that one.
constexpr milliseconds kCheckEvery{2000};

bool IsOutOfReach(const CORBA::Exception& error) {
    return CORBA::TRANSIENT::_downcast(&error) != nullptr || CORBA::COMM_FAILURE::_downcast(&error) != nullptr ||
           CORBA::TIMEOUT::_downcast(&error) != nullptr;
}

/// Whether what was sent is at fault, not the way there.
bool IsRefusal(const CORBA::Exception& error) {
    return CORBA::DATA_CONVERSION::_downcast(&error) != nullptr || CORBA::MARSHAL::_downcast(&error) != nullptr ||
           CORBA::BAD_PARAM::_downcast(&error) != nullptr;
}

class NotifySvc : public zo::Service {
public:
    NotifySvc() : Service(BUNDLE, NOTIFY_SERVICE) {}
    ~NotifySvc() override { Stop(); }

    int init(int argc, ACE_TCHAR* argv[]) override;

    void ExitThreads() override { Stop(); }

private:
    bool ReadSettings();
    void Stop();
    void Leave();
    void Enqueue(LightEventParam* param);

    milliseconds Round();
    void Connect();
    bool NextChange();
    void PushChange();

    zo::Log m_log{NOTIFY_SERVICE, BUNDLE, NOTIFY_SERVICE};
    std::string m_address;
    std::unique_ptr<ChangeQueue> m_queue;
    zo::EventSubscription m_subscription;

    // Used by the thread only.
    NameKeeper* m_names = nullptr;
    std::uint64_t m_agentStart = 0;
    std::unique_ptr<EventChannel> m_channel;
    std::unique_ptr<Peer> m_peer;
    std::optional<alarms::AlarmEvent> m_current;  // taken from the queue, not yet pushed
    bool m_refusing = false;

    std::atomic<bool> m_wakeOnChange{false};
    zo::ServiceThread m_thread{m_log};
};

int NotifySvc::init(int, ACE_TCHAR*[]) {
    if (!ReadSettings()) return -1;
    try {
        const CORBA::ORB_ptr orb = ServiceInterfaceProxy<OrbAccess>(ORB_SERVICE, BUNDLE)->Orb();
        m_channel = std::make_unique<EventChannel>(orb, m_address, kChannel);
        m_names = ServiceInterfaceProxy<NameKeeper>(NAMING_SERVICE, BUNDLE).GetInterface();
        // Without the table there would be no ORB either.
        m_agentStart = ServiceInterfaceProxy<alarms::AlarmTable>(alarms::ALARM_SERVICE)->Start();
    } catch (const NS_BUNDLEMGR1::InterfaceNotExistException&) {
        ZO_ERROR(m_log, "in svc.cfg %s and %s must stand above %s\n", ORB_SERVICE, NAMING_SERVICE, NOTIFY_SERVICE);
        return -1;
    }
    m_subscription.Open(alarms::EVENT_ALARM, [this](LightEventParam* param) { Enqueue(param); });
    m_thread.Start([this] { return Round(); });
    return 0;
}

bool NotifySvc::ReadSettings() {
    std::string host;
    if (!CorbaConfigItems::Instance()->GetStrItemInfo("NotifyService_Host", host) || host.empty()) {
        ZO_ERROR(m_log, "corba_agent.cfg does not say where the event service runs (NotifyService_HostIP)\n");
        return false;
    }
    m_address = host + ":" + std::to_string(alarms::IntSetting("NotifyServicePort", 11169, 1, 65535, m_log));
    m_peer = std::make_unique<Peer>(NOTIFY_SERVICE, "the event service at " + m_address);
    const int capacity = alarms::IntSetting("NotifyQueueLength", 10000, 1, 1000000, m_log);
    m_queue = std::make_unique<ChangeQueue>(static_cast<std::size_t>(capacity));
    return true;
}

void NotifySvc::Stop() {
    m_subscription.Close();
    m_thread.Stop();
    if (m_channel == nullptr) return;
    Leave();
    m_channel.reset();
}

/// An event service that is away is not called again: the stop would have to wait for it
/// once more.
void NotifySvc::Leave() {
    if (!m_channel->Connected()) return;
    if (m_peer->IsAway()) {
        ZO_INFO(m_log, "the event channel keeps the agent's place, the event service is away\n");
        return;
    }
    try {
        m_channel->Disconnect();
    } catch (const CORBA::Exception& error) {
        ZO_INFO(m_log, "cannot leave the event channel: %s\n", Describe(error).c_str());
    }
}

/// On the event manager's worker, which must not be kept: the calls to the event
/// service are the thread's.
void NotifySvc::Enqueue(LightEventParam* param) {
    const auto* const change = dynamic_cast<const alarms::AlarmEvent*>(param);
    if (change == nullptr) return;
    if (!m_queue->Put(*change)) {
        ZO_ERROR(m_log, "too many changes wait for the event service, dropping the oldest\n");
    }
    if (m_wakeOnChange) m_thread.Wake();
}

/// Pushes what there is. Returns early when the event service is away.
milliseconds NotifySvc::Round() {
    m_wakeOnChange = false;  // a change must not cut the pauses between the tries short
    try {
        if (!m_channel->Connected()) Connect();
        // Set before the queue is found empty, so that no change slips in unnoticed.
        m_wakeOnChange = true;
        if (!NextChange()) m_channel->Check();
        while (!m_thread.Stopping() && NextChange()) PushChange();
        m_peer->Here();
        return kCheckEvery;
    } catch (const CORBA::Exception& error) {
        m_wakeOnChange = false;
        // A channel that was only out of reach still knows us.
        if (!IsOutOfReach(error)) m_channel->Drop();
        return m_peer->Away(Describe(error));
    }
}

void NotifySvc::Connect() {
    const CosEventChannelAdmin::EventChannel_ptr channel = m_channel->Connect();
    m_names->Keep(CHANNEL_NAME, channel);
    ZO_INFO(m_log, "connected to %s at %s\n", kChannel, m_address.c_str());
}

/// A change that could not be pushed stays the current one, and is tried again.
bool NotifySvc::NextChange() {
    if (m_current) return true;
    m_current = m_queue->Take();
    if (m_current) return true;
    const std::uint64_t dropped = m_queue->TakeDropped();
    if (dropped != 0) ZO_ERROR(m_log, "dropped %" PRIu64 " changes in all\n", dropped);
    return false;
}

void NotifySvc::PushChange() {
    CORBA::Any event;
    event <<= ToIdl(*m_current, m_agentStart);
    try {
        m_channel->Push(event);
        m_refusing = false;
    } catch (const CORBA::SystemException& error) {
        if (!IsRefusal(error)) throw;
        // No try will do better, and the changes behind this one must get through.
        if (!m_refusing) {
            ZO_ERROR(m_log, "the event service refuses change %" PRIu64 " (%s); is its native code set UTF-8?\n",
                     m_current->m_sequence, Describe(error).c_str());
        }
        m_refusing = true;
    }
    m_current.reset();
}

}  // namespace

}  // namespace corba_bundle

ZO_SERVICE_FACTORY(corba_bundle::NotifySvc, NotifySvc);
