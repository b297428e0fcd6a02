// The agent's names in the naming service, and agents that share them.
#include <csignal>

#include <gtest/gtest.h>

#include <omniORB4/CORBA.h>

#include "alarm.hh"
#include "integration/agentcorbatest.h"
#include "support/wait.h"

namespace test {
namespace {

TEST_F(AgentCorbaTest, IsBoundAgainWhenTheNamingServiceWasRestartedWithoutItsData) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_TRUE(m_client->WaitForName("zo/AlarmChannel"));
    m_naming->Kill();
    ASSERT_TRUE(m_root.WaitForLog("the naming service at 127.0.0.1:" + m_naming->Port() + " is away"));
    // The clients that it has are served meanwhile.
    Feed("event=raise;id=7;object=NE-7;severity=minor\n");
    ASSERT_TRUE(WaitForSize(1));

    ASSERT_TRUE(m_naming->StartEmpty());

    const NbiAlarm::Agent_var again = m_client->Agent();
    ASSERT_FALSE(CORBA::is_nil(again));
    EXPECT_EQ(Text(NbiAlarm::Alarm_var(again->getAlarm("7"))), "7|NE-7|MINOR||||");
    EXPECT_TRUE(m_client->WaitForName("zo/AlarmChannel"));
    EXPECT_EQ(LogCount("the naming service at 127.0.0.1:" + m_naming->Port() + " is away"), 1u);
}

TEST_F(AgentCorbaTest, IsBoundAgainWhenSomebodyHasTakenItsNameAway) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());

    m_client->UnbindAgent();

    EXPECT_FALSE(CORBA::is_nil(NbiAlarm::Agent_var(m_client->Agent())));
}

TEST_F(AgentCorbaTest, LeavesItsNameToAnotherAgentThatAnswersAndFollowsIt) {
    const std::string bound = "zo/AlarmAgent is bound at 127.0.0.1:" + m_naming->Port();
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed("event=raise;id=7;object=NE-7;severity=minor\n");
    ASSERT_TRUE(WaitForSize(1));

    AgentRoot secondRoot;
    Configure(secondRoot);
    secondRoot.Append("var/alarms.feed", "event=raise;id=8;object=NE-8;severity=major\n");
    Agent second(secondRoot);
    ASSERT_TRUE(second.WaitUntilReady()) << second.Err();
    ASSERT_TRUE(secondRoot.WaitForLog("zo/AlarmAgent at 127.0.0.1:" + m_naming->Port() +
                                      " stands for another agent, which answers; leaving the names to it"));
    EXPECT_EQ(Text(NbiAlarm::Alarm_var(NbiAlarm::Agent_var(m_client->Agent())->getAlarm("7"))), "7|NE-7|MINOR||||");
    m_agent.reset();  // kills it

    ASSERT_TRUE(secondRoot.WaitForLog(bound));
    const NbiAlarm::Agent_var followed = m_client->Agent();
    EXPECT_TRUE(WaitFor([&] {
        try {
            return Text(NbiAlarm::Alarm_var(followed->getAlarm("8"))) == "8|NE-8|MAJOR||||";
        } catch (const NbiAlarm::NoSuchAlarm&) {
            return false;  // not read yet
        }
    }));
    EXPECT_EQ(Count(m_root.Log(), bound), 1u);
    EXPECT_EQ(Count(secondRoot.Log(), bound), 1u);
    EXPECT_EQ(Count(secondRoot.Log(), "zo/AlarmAgent at "), 1u);
}

TEST_F(AgentCorbaTest, TakesItsNameFromAnAgentThatDoesNotAnswer) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    m_agent->Process().Signal(SIGSTOP);

    AgentRoot secondRoot;
    Configure(secondRoot);
    Agent second(secondRoot);

    EXPECT_TRUE(secondRoot.WaitForLog("zo/AlarmAgent is bound at 127.0.0.1:" + m_naming->Port()));
}

}  // namespace
}  // namespace test
