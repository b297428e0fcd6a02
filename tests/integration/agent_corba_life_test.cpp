// How the agent's CORBA side starts and stops, whatever its clients and servers do.
#include <sys/socket.h>

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include <omniORB4/CORBA.h>

#include "alarm.hh"
#include "integration/agentcorbatest.h"
#include "support/giop.h"
#include "support/lineclient.h"
#include "support/wait.h"

namespace test {
namespace {

TEST_F(AgentCorbaTest, StartsWhileNamingAndEventServiceAreAway) {
    m_naming->Kill();
    m_events->Kill();
    ASSERT_NO_FATAL_FAILURE(StartAgent());
    ASSERT_TRUE(m_root.WaitForLog("the naming service at 127.0.0.1:" + m_naming->Port() + " is away"));
    ASSERT_TRUE(m_root.WaitForLog("the event service at 127.0.0.1:" + m_events->Port() + " is away"));
    Feed("event=raise;id=7;object=NE-7;severity=minor\n");

    ASSERT_TRUE(m_naming->StartAgain());
    ASSERT_TRUE(m_events->StartAgain());

    m_client = std::make_unique<Client>(m_naming->Port());
    m_service = m_client->Agent();
    ASSERT_FALSE(CORBA::is_nil(m_service)) << m_root.Log();
    EXPECT_TRUE(WaitForSize(1));
    EXPECT_NO_FATAL_FAILURE(Subscribe());
}

TEST_F(AgentCorbaTest, StopsWhileClientsAreConnected) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_NO_FATAL_FAILURE(Subscribe());
    Feed(RaiseLines("a", 200));
    ASSERT_TRUE(m_consumer.WaitForCount(200));
    NbiAlarm::AlarmSeq_var alarms;
    NbiAlarm::AlarmIterator_var rest;
    m_service->getActiveAlarms(10, alarms.out(), rest.out());

    EXPECT_EQ(StopAgent(), 0) << m_agent->Err();

    EXPECT_THROW(rest->next_n(10, alarms.out()), CORBA::SystemException);
    EXPECT_TRUE(CORBA::is_nil(CORBA::Object_var(m_client->Resolve("zo/AlarmAgent"))));
    EXPECT_TRUE(CORBA::is_nil(CORBA::Object_var(m_client->Resolve("zo/AlarmChannel"))));
    EXPECT_FALSE(CORBA::is_nil(CORBA::Object_var(m_client->Resolve("zo"))))
        << "the naming service itself must be there";
    EXPECT_EQ(m_root.Log().find("away"), std::string::npos);
}

TEST_F(AgentCorbaTest, StopsWhileClientsCallWithoutPause) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed(RaiseLines("a", 300));
    ASSERT_TRUE(WaitForSize(300));
    std::atomic<int> calls{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([this, &calls] {
            try {
                for (;; ++calls) {
                    NbiAlarm::AlarmSeq_var alarms;
                    NbiAlarm::AlarmIterator_var rest;
                    m_service->getActiveAlarms(100, alarms.out(), rest.out());
                    rest->next_n(100, alarms.out());
                    m_service->acknowledge("a0001", "bob");
                }
            } catch (const CORBA::SystemException&) {
                // The agent has gone.
            }
        });
    }
    EXPECT_TRUE(WaitFor([&] { return calls > 20; }));

    EXPECT_EQ(StopAgent(), 0) << m_agent->Err();

    for (std::thread& client : clients) client.join();
}

TEST_F(AgentCorbaTest, StopsWhileAClientDoesNotTakeItsReplies) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    for (int i = 1; i <= 1000; ++i) {
        Feed("event=raise;id=" + std::to_string(1000 + i) + ";object=NE;severity=minor;text=" + std::string(3000, 'x') +
             "\n");
    }
    NbiAlarm::AlarmSeq_var alarms;
    NbiAlarm::AlarmIterator_var rest;
    ASSERT_TRUE(
        WaitFor([&] { return m_service->getActiveAlarms(0, alarms.out(), rest.out()).sequenceNumber == 1000; }));
    const GiopTarget target(m_service);
    LineClient client(target.port, {"127.0.0.1", 4096});
    const std::string request = GiopRequest(target.key, "getActiveAlarms").Number(1000).Bytes();
    for (int i = 0; i < 20; ++i) client.Send(request);
    char first[4] = {};
    ASSERT_EQ(recv(client.Handle(), first, sizeof first, MSG_WAITALL), 4);
    ASSERT_EQ(std::string(first, 4), "GIOP");  // the first of many megabytes that nobody takes

    EXPECT_EQ(StopAgent(), 0) << m_agent->Err();
}

TEST_F(AgentCorbaTest, StopsWhileNamingAndEventServiceDoNotAnswer) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_NO_FATAL_FAILURE(Subscribe());
    m_naming->Freeze();
    m_events->Freeze();
    Feed(RaiseLines("a", 10));
    ASSERT_TRUE(WaitForSize(10));

    EXPECT_EQ(StopAgent(), 0) << m_agent->Err();
}

TEST_F(AgentCorbaTest, SaysNoGoodbyeToServersThatDoNotAnswer) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_NO_FATAL_FAILURE(Subscribe());
    m_naming->Freeze();
    m_events->Freeze();
    ASSERT_TRUE(m_root.WaitForLog("the naming service at 127.0.0.1:" + m_naming->Port() + " is away"));
    ASSERT_TRUE(m_root.WaitForLog("the event service at 127.0.0.1:" + m_events->Port() + " is away"));

    EXPECT_EQ(StopAgent(), 0) << m_agent->Err();

    // Each would have waited for its call to time out.
    EXPECT_EQ(LogCount("cannot unbind from the naming service"), 0u);
    EXPECT_EQ(LogCount("cannot leave the event channel"), 0u);
    EXPECT_EQ(LogCount("what is bound stays bound, the naming service is away"), 1u);
    EXPECT_EQ(LogCount("the event channel keeps the agent's place, the event service is away"), 1u);
}

TEST_F(AgentCorbaTest, AnOccupiedPortFailsTheStartWithAReason) {
    m_root.SetItem("CorbaAgentPort", m_naming->Port());
    Agent agent(m_root);

    EXPECT_EQ(agent.Process().Wait(), 1);

    EXPECT_NE(agent.Err().find("zo_agent: cannot initialise zo_corba_bundle (service OrbSvc)"), std::string::npos)
        << agent.Err();
    EXPECT_TRUE(m_root.WaitForLog("cannot start the ORB on giop:tcp:127.0.0.1:" + m_naming->Port() + ": "));
}

}  // namespace
}  // namespace test
