// What the agent pushes while its event service comes and goes.
#include <set>

#include <gtest/gtest.h>

#include <omniORB4/CORBA.h>

#include "integration/agentcorbatest.h"
#include "support/wait.h"

namespace test {
namespace {

TEST_F(AgentCorbaTest, PushesGoOnWhenTheEventServiceWasRestartedWithItsData) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_NO_FATAL_FAILURE(Subscribe());
    Feed("event=raise;id=1;object=NE-1;severity=minor\n");
    ASSERT_TRUE(m_consumer.WaitForCount(1));

    m_events->Kill();
    Feed(RaiseLines("a", 3));
    ASSERT_TRUE(m_root.WaitForLog("the event service at 127.0.0.1:" + m_events->Port() + " is away"));
    ASSERT_TRUE(m_events->StartAgain());

    // The channel has kept its members, so that nobody needs to subscribe again.
    ASSERT_TRUE(WaitFor([&] { return m_consumer.Numbers().back() == 4; })) << m_root.Log();
    // One whose reply the end of the service has cut off is pushed once more.
    std::vector<CORBA::ULongLong> numbers = m_consumer.Numbers();
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    EXPECT_EQ(numbers, (std::vector<CORBA::ULongLong>{1, 2, 3, 4}));
    EXPECT_EQ(LogCount("the event service at 127.0.0.1:" + m_events->Port() + " is away"), 1u);
}

TEST_F(AgentCorbaTest, PushesGoOnWhenTheEventServiceWasRestartedWithoutItsData) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_NO_FATAL_FAILURE(Subscribe());
    m_events->Kill();
    ASSERT_TRUE(m_events->StartEmpty());

    // The agent makes a channel anew, without being moved to it by a change.
    ASSERT_TRUE(WaitFor([&] {
        try {
            m_supplier = m_client->Subscribe(m_secondConsumer);
            return !CORBA::is_nil(m_supplier);
        } catch (const CORBA::Exception&) {
            return false;  // the naming service still names the old one
        }
    }));
    Feed(RaiseLines("a", 3));

    ASSERT_TRUE(m_secondConsumer.WaitForCount(3)) << m_root.Log();
    EXPECT_EQ(m_secondConsumer.Numbers(), (std::vector<CORBA::ULongLong>{1, 2, 3}));
}

TEST_F(AgentCorbaTest, KeepsItsPlaceInTheChannelOfAnEventServiceThatDidNotAnswer) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_NO_FATAL_FAILURE(Subscribe());
    m_events->Freeze();
    Feed(RaiseLines("a", 3));
    ASSERT_TRUE(m_root.WaitForLog("the event service at 127.0.0.1:" + m_events->Port() + " is away"));
    m_events->Thaw();

    // The push that was given up arrives, too: before or behind the others.
    ASSERT_TRUE(WaitFor([&] {
        const std::vector<CORBA::ULongLong> numbers = m_consumer.Numbers();
        return std::set<CORBA::ULongLong>(numbers.begin(), numbers.end()).size() == 3;
    }));
    EXPECT_EQ(LogCount("connected to AlarmChannel at "), 1u);
}

TEST_F(AgentCorbaTest, DropsTheOldestChangesWhenTheEventServiceIsAwayForTooLong) {
    m_root.SetItem("NotifyQueueLength", "10");
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_NO_FATAL_FAILURE(Subscribe());
    m_events->Kill();
    ASSERT_TRUE(m_root.WaitForLog("the event service at 127.0.0.1:" + m_events->Port() + " is away"));

    Feed(RaiseLines("a", 50));
    ASSERT_TRUE(WaitForSize(50));
    ASSERT_TRUE(m_root.WaitForLog("too many changes wait for the event service, dropping the oldest"));
    ASSERT_TRUE(m_events->StartAgain());

    ASSERT_TRUE(WaitFor([&] { return !m_consumer.Numbers().empty() && m_consumer.Numbers().back() == 50; }));
    // The last ten, and before them perhaps the one that was being pushed.
    std::vector<CORBA::ULongLong> numbers = m_consumer.Numbers();
    ASSERT_GE(numbers.size(), 10u);
    ASSERT_LE(numbers.size(), 11u);
    EXPECT_EQ(std::vector<CORBA::ULongLong>(numbers.end() - 10, numbers.end()),
              (std::vector<CORBA::ULongLong>{41, 42, 43, 44, 45, 46, 47, 48, 49, 50}));
    EXPECT_TRUE(m_root.WaitForLog("dropped " + std::to_string(50 - numbers.size()) + " changes in all"));
    EXPECT_EQ(LogCount("too many changes wait"), 1u);
}

TEST_F(AgentCorbaTest, AnEventServiceThatKnowsNoUtf8MissesOnlyWhatItCannotTake) {
    m_events = std::make_unique<EventServer>("ISO-8859-1");
    m_root.SetItem("NotifyServicePort", m_events->Port());
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_NO_FATAL_FAILURE(Subscribe());

    Feed(
        "event=raise;id=1;object=NE-1;severity=minor;text=ascii\n"
        "event=raise;id=2;object=NE-2;severity=minor;text=\xd6\xd0\xce\xc4\n"
        "event=raise;id=3;object=NE-3;severity=minor;text=ascii\n");

    ASSERT_TRUE(m_consumer.WaitForCount(2));
    EXPECT_EQ(m_consumer.Numbers(), (std::vector<CORBA::ULongLong>{1, 3}));
    EXPECT_TRUE(m_root.WaitForLog("the event service refuses change 2"));
}

}  // namespace
}  // namespace test
