// The agent's alarms as a CORBA client sees them: listed, pushed and acknowledged.
#include <cstddef>

#include <gtest/gtest.h>

#include <omniORB4/CORBA.h>

#include "alarm.hh"
#include "integration/agentcorbatest.h"
#include "support/wait.h"

namespace test {
namespace {

TEST_F(AgentCorbaTest, ListsWhatTheFeedRaisedInUtf8) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    // The text is GBK in the feed.
    Feed(
        "event=raise;id=7;object=NE-7/slot-1;severity=major;cause=loss of signal;time=2024-03-01 08:05:09;"
        "text=\xb9\xe2\xc0\xc2\xd6\xd0\xb6\xcf\n"
        "event=raise;id=8;object=NE-8;severity=warning\n");

    ASSERT_TRUE(WaitForSize(2));
    NbiAlarm::AlarmSeq_var alarms = List();
    EXPECT_EQ(Text(alarms[0]),
              "7|NE-7/slot-1|MAJOR|loss of signal|2024-03-01 08:05:09|"
              "\xe5\x85\x89\xe7\xbc\x86\xe4\xb8\xad\xe6\x96\xad|");
    EXPECT_EQ(Text(alarms[1]), "8|NE-8|WARNING||||");
}

TEST_F(AgentCorbaTest, AnEmptyTableIsAnEmptyListWithoutIterator) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());

    EXPECT_EQ(List()->length(), 0u);
}

TEST_F(AgentCorbaTest, GivesOneAlarmByItsId) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed("event=raise;id=7;object=NE-7;severity=critical;cause=fire\n");
    ASSERT_TRUE(WaitForSize(1));

    const NbiAlarm::Alarm_var alarm = m_service->getAlarm("7");

    EXPECT_EQ(Text(alarm), "7|NE-7|CRITICAL|fire|||");
}

TEST_F(AgentCorbaTest, AnUnknownIdIsNoSuchAlarm) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());

    try {
        const NbiAlarm::Alarm_var alarm = m_service->getAlarm("nowhere");
        FAIL() << Text(alarm);
    } catch (const NbiAlarm::NoSuchAlarm& none) {
        EXPECT_STREQ(none.id, "nowhere");
    }
    EXPECT_THROW(m_service->acknowledge("nowhere", "bob"), NbiAlarm::NoSuchAlarm);
}

TEST_F(AgentCorbaTest, AcknowledgingSetsTheUserAndIsPushed) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_NO_FATAL_FAILURE(Subscribe());
    Feed("event=raise;id=7;object=NE-7;severity=minor\n");
    ASSERT_TRUE(m_consumer.WaitForCount(1));

    m_service->acknowledge("7", "J\xc3\xbcrgen");

    EXPECT_EQ(Text(NbiAlarm::Alarm_var(m_service->getAlarm("7"))), "7|NE-7|MINOR||||J\xc3\xbcrgen");
    ASSERT_TRUE(m_consumer.WaitForCount(2));
    EXPECT_EQ(m_consumer.Changes().back(), "2 CHANGED ack.user 7|NE-7|MINOR||||J\xc3\xbcrgen");
}

TEST_F(AgentCorbaTest, RefusesUserNamesThatWouldSpoilALineOfText) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed("event=raise;id=7;object=NE-7;severity=minor\n");
    ASSERT_TRUE(WaitForSize(1));

    EXPECT_THROW(m_service->acknowledge("7", "bob\nCLEARED 3 id=7"), CORBA::BAD_PARAM);
    EXPECT_THROW(m_service->acknowledge("7", std::string(129, 'x').c_str()), CORBA::BAD_PARAM);
    EXPECT_EQ(Text(NbiAlarm::Alarm_var(m_service->getAlarm("7"))), "7|NE-7|MINOR||||");

    m_service->acknowledge("7", std::string(128, 'x').c_str());
    EXPECT_EQ(Text(NbiAlarm::Alarm_var(m_service->getAlarm("7"))), "7|NE-7|MINOR||||" + std::string(128, 'x'));
}

TEST_F(AgentCorbaTest, PushesEveryChangeWithItsAttributes) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_NO_FATAL_FAILURE(Subscribe());

    Feed(
        "event=raise;id=7;object=NE-7;severity=minor;text=\xb6\xcf\n"
        "event=change;id=7;severity=critical;cause=fire\n"
        "event=change;id=7;severity=critical\n"  // no change
        "event=clear;id=7\n");

    ASSERT_TRUE(m_consumer.WaitForCount(3));
    EXPECT_EQ(
        m_consumer.Changes(),
        (std::vector<std::string>{"1 RAISED object severity cause time text ack.user 7|NE-7|MINOR|||\xe6\x96\xad|",
                                  "2 CHANGED severity cause 7|NE-7|CRITICAL|fire||\xe6\x96\xad|",
                                  "3 CLEARED 7|NE-7|CRITICAL|fire||\xe6\x96\xad|"}));
}

TEST_F(AgentCorbaTest, PushesAStormOfAlarmsCompleteAndInOrder) {
    constexpr int kAlarms = 3000;
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_NO_FATAL_FAILURE(Subscribe());

    Feed(RaiseLines("a", kAlarms));

    ASSERT_TRUE(m_consumer.WaitForCount(kAlarms));
    const std::vector<CORBA::ULongLong> numbers = m_consumer.Numbers();
    for (std::size_t i = 0; i < kAlarms; ++i) ASSERT_EQ(numbers[i], i + 1);
    EXPECT_EQ(numbers.size(), std::size_t{kAlarms});
}

TEST_F(AgentCorbaTest, AListAndItsChangesNameTheSameRunOfTheAgentAndTheNextRunAnother) {
    const auto listedStart = [this] {
        NbiAlarm::AlarmSeq_var alarms;
        NbiAlarm::AlarmIterator_var rest;
        return m_service->getActiveAlarms(0, alarms.out(), rest.out()).agentStart;
    };
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_NO_FATAL_FAILURE(Subscribe());
    const CORBA::ULongLong first = listedStart();
    Feed(RaiseLines("a", 2));
    ASSERT_TRUE(m_consumer.WaitForCount(2));
    ASSERT_NO_FATAL_FAILURE(RestartAgent());
    Feed(RaiseLines("b", 2));
    ASSERT_TRUE(m_consumer.WaitForCount(4)) << m_root.Log();

    const std::vector<CORBA::ULongLong> starts = m_consumer.Starts();
    EXPECT_NE(starts[2], first);
    EXPECT_EQ(starts, (std::vector<CORBA::ULongLong>{first, first, starts[2], starts[2]}));
    EXPECT_EQ(m_consumer.Numbers(), (std::vector<CORBA::ULongLong>{1, 2, 1, 2}));
    ASSERT_TRUE(WaitFor([&] {
        m_service = m_client->Agent();
        try {
            return !CORBA::is_nil(m_service) && listedStart() == starts[2];
        } catch (const CORBA::SystemException&) {
            return false;  // the name still stands for the agent that was killed
        }
    }));
}

TEST_F(AgentCorbaTest, TheNumberOfAListTellsWhichChangesItContains) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed(RaiseLines("a", 3) + "event=clear;id=a0002\n");
    ASSERT_NO_FATAL_FAILURE(Subscribe());
    CORBA::ULongLong listed = 0;
    NbiAlarm::AlarmSeq_var alarms;
    NbiAlarm::AlarmIterator_var rest;
    ASSERT_TRUE(WaitFor([&] {
        listed = m_service->getActiveAlarms(10, alarms.out(), rest.out()).sequenceNumber;
        return listed == 4;
    }));

    EXPECT_EQ(Ids(alarms), (std::vector<std::string>{"a0001", "a0003"}));
    Feed("event=clear;id=a0003\n");
    ASSERT_TRUE(WaitFor([&] { return !m_consumer.Numbers().empty() && m_consumer.Numbers().back() == listed + 1; }));
    EXPECT_EQ(m_consumer.Changes().back(), "5 CLEARED a0003|NE-0003|MINOR||||");
}

TEST_F(AgentCorbaTest, SendsAlarmsWithLongTextsInMessagesThatAnOrbTakes) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    const std::string text(3000, 'x');
    for (int i = 1; i <= 1000; ++i) {
        Feed("event=raise;id=" + std::to_string(1000 + i) + ";object=NE;severity=minor;text=" + text + "\n");
    }
    NbiAlarm::AlarmSeq_var piece;
    NbiAlarm::AlarmIterator_var rest;
    ASSERT_TRUE(
        WaitFor([&] { return m_service->getActiveAlarms(1000, piece.out(), rest.out()).sequenceNumber == 1000; }));

    std::vector<std::size_t> sizes = {piece->length()};
    while (rest->next_n(1000, piece.out())) sizes.push_back(piece->length());

    EXPECT_EQ(sizes, (std::vector<std::size_t>{337, 337, 326}));  // 1 MiB of 3106 bytes each
}

}  // namespace
}  // namespace test
