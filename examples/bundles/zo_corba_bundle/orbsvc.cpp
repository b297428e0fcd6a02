// OrbSvc: the ORB and the agent's object in it.
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <omniORB4/CORBA.h>

#include <bundlemgr/base.h>
#include <bundlemgr/bundle.h>
#include <bundlemgr/kit.h>

#include "accessguard.h"
#include "agentservant.h"
#include "alarmtable.h"
#include "connectionlimit.h"
#include "corbainterfaces.h"
#include "iteratorpool.h"
#include "peer.h"
#include "settings.h"

using NS_BUNDLEMGR1::CorbaConfigItems;
using NS_BUNDLEMGR1::NameValueStru;
using NS_BUNDLEMGR1::ServiceInterfaceProxy;

namespace corba_bundle {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kLookEvery{1000};

// No call that the agent makes takes longer than this, and none that it answers. By
// default an ORB waits for ever for a server that does not answer and for a client that
// does not take its reply, and so would the stop of the agent.
constexpr milliseconds kCallTimeout{2000};
constexpr milliseconds kReplyTimeout{3000};

/// Options of an ORB, in the form in which `ORB_init` takes them.
class OrbOptions {
public:
    void Add(const std::string& name, const std::string& value) { m_options.push_back({name, value}); }

    CORBA::ORB_ptr InitOrb() const {
        using Option = const char* [2];
        const auto options = std::make_unique<Option[]>(m_options.size() + 1);  // the last one stays null
        for (std::size_t i = 0; i < m_options.size(); ++i) {
            options[i][0] = m_options[i].name.c_str();
            options[i][1] = m_options[i].value.c_str();
        }
        int argc = 0;
        return CORBA::ORB_init(argc, nullptr, "omniORB4", options.get());
    }

private:
    std::vector<NameValueStru> m_options;
};

class OrbSvc : public zo::Service {
public:
    OrbSvc() : Service(BUNDLE, ORB_SERVICE) {}
    ~OrbSvc() override { Stop(); }

    int init(int argc, ACE_TCHAR* argv[]) override;

    // While init is still running, fini does it when that has ended.
    void ExitThreads() override {
        if (m_isReady) Stop();
    }

private:
    bool ReadSettings();
    void Start();
    void Stop();

    zo::Log m_log{ORB_SERVICE, BUNDLE, ORB_SERVICE};
    OrbOptions m_options;
    std::string m_endPoint;
    seconds m_longestIdle{60};
    std::size_t m_maxConnections = 0;

    std::unique_ptr<AccessGuard> m_access;
    ConnectionLimit m_limit{m_log};
    CORBA::ORB_var m_orb;
    std::unique_ptr<IteratorPool> m_iterators;
    PortableServer::Servant_var<AgentServant> m_servant;
    NbiAlarm::Agent_var m_agent;
    std::thread m_orbThread;
    zo::ServiceThread m_watch{m_log};
    std::atomic<bool> m_isReady{false};
};

/// What the other services of the bundle see.
class PublishedOrb : public OrbAccess {
public:
    PublishedOrb(CORBA::ORB_ptr orb, CORBA::Object_ptr agent)
        : m_orb(CORBA::ORB::_duplicate(orb)), m_agent(CORBA::Object::_duplicate(agent)) {}
    std::string GetDescription() override { return "the ORB and the agent's object"; }
    void* GetImplementation() override { return nullptr; }
    CORBA::ORB_ptr Orb() override { return m_orb; }
    CORBA::Object_ptr Agent() override { return m_agent; }

private:
    const CORBA::ORB_var m_orb;
    const CORBA::Object_var m_agent;
};

int OrbSvc::init(int, ACE_TCHAR*[]) {
    if (!ReadSettings()) return -1;
    try {
        Start();
    } catch (const NS_BUNDLEMGR1::InterfaceNotExistException&) {
        ZO_ERROR(m_log, "%s publishes no alarm table; is zo_base_bundle in bundlemgr.cfg?\n", alarms::ALARM_SERVICE);
        return -1;
    } catch (const CORBA::Exception& error) {
        ZO_ERROR(m_log, "cannot start the ORB on %s: %s\n", m_endPoint.c_str(), Describe(error).c_str());
        return -1;
    }
    Publish(std::make_unique<PublishedOrb>(m_orb, m_agent));
    m_isReady = true;
    ZO_INFO(m_log, "the agent's object is served at %s\n", m_endPoint.c_str());
    return 0;
}

bool OrbSvc::ReadSettings() {
    std::string host;
    if (!CorbaConfigItems::Instance()->GetStrItemInfo("CORBAAgent_Host", host) || host.empty()) {
        ZO_ERROR(m_log, "corba_agent.cfg does not say where the agent runs (CORBAAgent_HostIP)\n");
        return false;
    }
    // Port 0: any that is free; clients find it in the naming service.
    const int port = alarms::IntSetting("CorbaAgentPort", 0, 0, 65535, m_log);
    m_endPoint = "giop:tcp:" + host + ":" + (port != 0 ? std::to_string(port) : "");
    m_longestIdle = seconds(alarms::IntSetting("CorbaIteratorIdleSeconds", 60, 1, 86400, m_log));
    m_maxConnections = static_cast<std::size_t>(alarms::IntSetting("CorbaMaxConnections", 200, 1, 4096, m_log));
    m_options.Add("endPoint", m_endPoint);
    m_options.Add("nativeCharCodeSet", "UTF-8");  // what the alarms are in, see alarm.idl
    m_options.Add("clientCallTimeOutPeriod", std::to_string(kCallTimeout.count()));
    m_options.Add("serverCallTimeOutPeriod", std::to_string(kReplyTimeout.count()));
    // From any address: who may connect is the access guard's business.
    m_options.Add("serverTransportRule", "* tcp");
    return true;
}

void OrbSvc::Start() {
    // Looked up now and not in a client's call: a look-up may wait for the bundle
    // manager, which while it stops the agent waits for the client's call.
    alarms::AlarmTable& table = *ServiceInterfaceProxy<alarms::AlarmTable>(alarms::ALARM_SERVICE).GetInterface();

    m_orb = m_options.InitOrb();
    // The first one is asked first, so that who is refused does not count for the other.
    m_access = std::make_unique<AccessGuard>(m_log);
    m_access->Begin();
    m_limit.Begin(m_maxConnections);
    const CORBA::Object_var object = m_orb->resolve_initial_references("RootPOA");
    const PortableServer::POA_var poa = PortableServer::POA::_narrow(object);
    m_iterators = std::make_unique<IteratorPool>(poa, m_longestIdle);
    m_servant = new AgentServant(table, *m_iterators);
    const PortableServer::ObjectId_var id = poa->activate_object(m_servant);
    m_agent = m_servant->_this();
    const PortableServer::POAManager_var manager = poa->the_POAManager();
    manager->activate();

    m_orbThread = std::thread([orb = m_orb] { orb->run(); });
    m_watch.Start([this] {
        const std::size_t reaped = m_iterators->Reap();
        if (reaped != 0) ZO_INFO(m_log, "reaped %zu iterators that were left alone\n", reaped);
        m_limit.CheckDescriptors();
        return kLookEvery;
    });
}

void OrbSvc::Stop() {
    RemoveInterface();
    m_watch.Stop();
    if (CORBA::is_nil(m_orb)) return;
    // After this no call is under way any more and nothing of this library is called by
    // the ORB: the library may go. The ORB's own libraries stay, see zo_alarm_idl.
    m_orb->shutdown(true);
    if (m_orbThread.joinable()) m_orbThread.join();
    if (m_access) m_access->End();
    m_limit.End();
    m_orb->destroy();
    m_orb = CORBA::ORB::_nil();
    ZO_INFO(m_log, "the ORB has ended\n");
}

}  // namespace

}  // namespace corba_bundle

ZO_SERVICE_FACTORY(corba_bundle::OrbSvc, OrbSvc);
