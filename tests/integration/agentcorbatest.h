// What tests of the agent's CORBA side share: a real agent, naming service and event
// service as child processes, and clients in this one.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <omniORB4/CORBA.h>
#include <omniEvents/CosEventChannelAdmin.hh>
#include <omniORB4/Naming.hh>

#include "alarm.hh"
#include "support/agent.h"
#include "support/corbaservers.h"
#include "support/count.h"
#include "support/wait.h"

namespace test {

inline const char* SeverityText(NbiAlarm::Severity severity) {
    static const char* const names[] = {"INDETERMINATE", "CRITICAL", "MAJOR", "MINOR", "WARNING"};
    return names[severity];
}

/// All members of an alarm, with "|" between them.
inline std::string Text(const NbiAlarm::Alarm& alarm) {
    return std::string(alarm.id) + "|" + alarm.managedObject.in() + "|" + SeverityText(alarm.perceivedSeverity) + "|" +
           alarm.probableCause.in() + "|" + alarm.eventTime.in() + "|" + alarm.additionalText.in() + "|" +
           alarm.acknowledgedBy.in();
}

/// "<number> <kind> [<changed attribute>]... <alarm>"
inline std::string Text(const NbiAlarm::AlarmChange& change) {
    static const char* const kinds[] = {"RAISED", "CHANGED", "CLEARED"};
    std::string text = std::to_string(change.where.sequenceNumber) + " " + kinds[change.kind] + " ";
    for (CORBA::ULong i = 0; i < change.changedAttributes.length(); ++i) {
        text += std::string(change.changedAttributes[i]) + " ";
    }
    return text + Text(change.theAlarm);
}

inline std::vector<std::string> Ids(const NbiAlarm::AlarmSeq& alarms) {
    std::vector<std::string> ids;
    for (CORBA::ULong i = 0; i < alarms.length(); ++i) ids.emplace_back(alarms[i].id);
    return ids;
}

/// Feed lines that raise alarms "<prefix>0001" and so on.
inline std::string RaiseLines(const std::string& prefix, int count) {
    std::string lines;
    for (int i = 1; i <= count; ++i) {
        const std::string number = std::to_string(10000 + i).substr(1);
        lines += "event=raise;id=" + prefix + number + ";object=NE-" + number + ";severity=minor\n";
    }
    return lines;
}

/// Keeps what the channel pushes.
class Consumer : public POA_CosEventComm::PushConsumer {
public:
    void push(const CORBA::Any& event) override {
        const NbiAlarm::AlarmChange* change = nullptr;
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (event >>= change) {
            m_changes.push_back(Text(*change));
            m_numbers.push_back(change->where.sequenceNumber);
            m_starts.push_back(change->where.agentStart);
        } else {
            m_changes.emplace_back("not an AlarmChange");
        }
    }
    void disconnect_push_consumer() override {}

    std::vector<std::string> Changes() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_changes;
    }
    std::vector<CORBA::ULongLong> Numbers() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_numbers;
    }
    std::vector<CORBA::ULongLong> Starts() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_starts;
    }
    bool WaitForCount(std::size_t count) {
        return WaitFor([&] { return Numbers().size() >= count; });
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_changes;
    std::vector<CORBA::ULongLong> m_numbers;
    std::vector<CORBA::ULongLong> m_starts;
};

/// A client with an ORB of its own.
class Client {
public:
    explicit Client(const std::string& namingPort) : m_namingPort(namingPort) {
        const char* options[][2] = {{"endPoint", "giop:tcp:127.0.0.1:"},
                                    {"nativeCharCodeSet", "UTF-8"},
                                    {"clientCallTimeOutPeriod", "5000"},
                                    {nullptr, nullptr}};
        int argc = 0;
        m_orb = CORBA::ORB_init(argc, nullptr, "omniORB4", options);
        const CORBA::Object_var object = m_orb->resolve_initial_references("RootPOA");
        m_poa = PortableServer::POA::_narrow(object);
        const PortableServer::POAManager_var manager = m_poa->the_POAManager();
        manager->activate();
    }
    ~Client() { m_orb->destroy(); }

    /// @return nil when the naming service is away or has no such name
    CORBA::Object_ptr Resolve(const char* name) const {
        try {
            const CORBA::Object_var object =
                m_orb->string_to_object(("corbaloc::127.0.0.1:" + m_namingPort + "/NameService").c_str());
            const auto root = CosNaming::NamingContextExt_var(CosNaming::NamingContextExt::_narrow(object));
            return root->resolve_str(name);
        } catch (const CORBA::Exception&) {
            return CORBA::Object::_nil();
        }
    }

    bool WaitForName(const char* name) const {
        return WaitFor([&] { return !CORBA::is_nil(CORBA::Object_var(Resolve(name))); });
    }

    /// The agent as the naming service knows it, waited for.
    NbiAlarm::Agent_ptr Agent() const {
        if (!WaitForName("zo/AlarmAgent")) return NbiAlarm::Agent::_nil();
        return NbiAlarm::Agent::_narrow(CORBA::Object_var(Resolve("zo/AlarmAgent")));
    }

    /// Takes the agent's name away, as anybody may.
    void UnbindAgent() const {
        const CORBA::Object_var object = Resolve("zo");
        const CosNaming::NamingContext_var context = CosNaming::NamingContext::_narrow(object);
        CosNaming::Name name;
        name.length(1);
        name[0].id = "AlarmAgent";
        context->unbind(name);
    }

    /// The proxy through which the channel pushes to `consumer`.
    CosEventChannelAdmin::ProxyPushSupplier_ptr Subscribe(Consumer& consumer) const {
        if (!WaitForName("zo/AlarmChannel")) return CosEventChannelAdmin::ProxyPushSupplier::_nil();
        const auto channel = CosEventChannelAdmin::EventChannel_var(
            CosEventChannelAdmin::EventChannel::_narrow(CORBA::Object_var(Resolve("zo/AlarmChannel"))));
        const CosEventChannelAdmin::ConsumerAdmin_var admin = channel->for_consumers();
        CosEventChannelAdmin::ProxyPushSupplier_var supplier = admin->obtain_push_supplier();
        const PortableServer::ObjectId_var id = m_poa->activate_object(&consumer);
        supplier->connect_push_consumer(CosEventComm::PushConsumer_var(consumer._this()));
        return supplier._retn();
    }

private:
    const std::string m_namingPort;
    CORBA::ORB_var m_orb;
    PortableServer::POA_var m_poa;
};

class AgentCorbaTest : public testing::Test {
protected:
    void SetUp() override {
        if (std::string(ZO_OMNINAMES).empty() || std::string(ZO_OMNIEVENTS).empty()) {
            GTEST_SKIP() << "omniNames or omniEvents is missing, see scripts/install-deps.sh corba";
        }
        m_naming = std::make_unique<NamingServer>();
        m_events = std::make_unique<EventServer>();
        Configure(m_root);
    }

    void Configure(const AgentRoot& root) const {
        root.SetBundles({"zo_base_bundle", "zo_domain_bundle", "zo_corba_bundle"});
        root.SetItem("NamingServicePort", m_naming->Port());
        root.SetItem("NotifyServicePort", m_events->Port());
        root.SetItem("FeedPollMilliseconds", "10");
    }

    // A test that needs no orderly stop kills the agent, but an agent that died before,
    // of what a sanitizer found for example, has failed.
    void TearDown() override {
        if (m_agent == nullptr || m_stopped) return;
        EXPECT_FALSE(m_agent->Process().HasEnded()) << m_agent->Err();
    }

    int StopAgent() {
        m_stopped = true;
        return m_agent->Stop();
    }

    virtual void StartAgent() {
        m_agent = std::make_unique<Agent>(m_root);
        ASSERT_TRUE(m_agent->WaitUntilReady()) << m_agent->Err() << m_root.Log();
    }

    void StartAgentAndClient() {
        ASSERT_NO_FATAL_FAILURE(StartAgent());
        m_client = std::make_unique<Client>(m_naming->Port());
        m_service = m_client->Agent();
        ASSERT_FALSE(CORBA::is_nil(m_service)) << m_root.Log();
    }

    void StartAgentThatRefusesUs() {
        ASSERT_NO_FATAL_FAILURE(StartAgent());
        Client client(m_naming->Port());
        ASSERT_TRUE(client.WaitForName("zo/AlarmAgent"));
        const auto agent =
            NbiAlarm::Agent_var(NbiAlarm::Agent::_unchecked_narrow(CORBA::Object_var(client.Resolve("zo/AlarmAgent"))));
        EXPECT_THROW(NbiAlarm::Alarm_var(agent->getAlarm("7")), CORBA::SystemException);
    }

    void Subscribe() {
        m_supplier = m_client->Subscribe(m_consumer);
        ASSERT_FALSE(CORBA::is_nil(m_supplier)) << m_root.Log();
    }

    void Feed(const std::string& lines) { m_root.Append("var/alarms.feed", lines); }

    NbiAlarm::AlarmSeq_var List() {
        NbiAlarm::AlarmSeq_var alarms;
        NbiAlarm::AlarmIterator_var rest;
        m_service->getActiveAlarms(1000, alarms.out(), rest.out());
        EXPECT_TRUE(CORBA::is_nil(rest));
        return alarms;
    }

    bool WaitForSize(CORBA::ULong count) {
        return WaitFor([&] { return List()->length() == count; });
    }

    /// Kills the agent and starts it again on an empty feed. Returns when it pushes: what
    /// it raised before that would reach nobody.
    void RestartAgent() {
        const std::string pushes = "connected to AlarmChannel at ";
        ASSERT_TRUE(m_root.WaitForLog(pushes));
        m_agent.reset();
        for (const char* const file : {"out", "var/alarms.feed"}) std::filesystem::remove(m_root / file);
        ASSERT_NO_FATAL_FAILURE(StartAgent());
        ASSERT_TRUE(WaitFor([&] { return LogCount(pushes) == 2; })) << m_root.Log();
    }

    std::size_t LogCount(const std::string& text) const { return Count(m_root.Log(), text); }

    // In this order, so that the client goes before the servers.
    AgentRoot m_root;
    std::unique_ptr<NamingServer> m_naming;
    std::unique_ptr<EventServer> m_events;
    std::unique_ptr<Agent> m_agent;
    bool m_stopped = false;
    Consumer m_consumer;
    Consumer m_secondConsumer;
    std::unique_ptr<Client> m_client;
    NbiAlarm::Agent_var m_service;
    CosEventChannelAdmin::ProxyPushSupplier_var m_supplier;
};

}  // namespace test
