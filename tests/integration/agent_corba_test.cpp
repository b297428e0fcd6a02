// The agent's CORBA side, from the feed to a CORBA client.
#include <gtest/gtest.h>

#if ZO_HAVE_CORBA

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <omniORB4/CORBA.h>
#include <omniORB4/Naming.hh>

#include "alarm.hh"
#include "integration/agentcorbatest.h"
#include "support/agent.h"
#include "support/childprocess.h"
#include "support/corbaservers.h"
#include "support/giop.h"
#include "support/lineclient.h"
#include "support/tempdir.h"
#include "support/wait.h"

namespace {

using test::AgentCorbaTest;
using test::Client;
using test::Count;
using test::Ids;
using test::RaiseLines;
using test::Text;
using test::WaitFor;

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

class AgentCorbaIteratorTest : public AgentCorbaTest {
protected:
    static constexpr int kAlarms = 2500;

    void StartWithManyAlarms() {
        ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
        Feed(RaiseLines("a", kAlarms));
        ASSERT_TRUE(WaitFor([&] {
            NbiAlarm::AlarmSeq_var alarms;
            NbiAlarm::AlarmIterator_var rest;
            const NbiAlarm::Position listed = m_service->getActiveAlarms(0, alarms.out(), rest.out());
            if (!CORBA::is_nil(rest)) rest->destroy();  // it would count with those of the test
            return listed.sequenceNumber == kAlarms;
        }));
    }

    NbiAlarm::AlarmIterator_ptr First(CORBA::ULong howMany, NbiAlarm::AlarmSeq_out alarms) {
        NbiAlarm::AlarmIterator_var rest;
        m_service->getActiveAlarms(howMany, alarms, rest.out());
        return rest._retn();
    }

    static bool IsGone(NbiAlarm::AlarmIterator_ptr iterator) {
        NbiAlarm::AlarmSeq_var alarms;
        try {
            iterator->next_n(1, alarms.out());
            return false;
        } catch (const CORBA::OBJECT_NOT_EXIST&) {
            return true;
        }
    }
};

TEST_F(AgentCorbaIteratorTest, GivesALongListInPieces) {
    ASSERT_NO_FATAL_FAILURE(StartWithManyAlarms());
    NbiAlarm::AlarmSeq_var piece;

    const NbiAlarm::AlarmIterator_var rest = First(100, piece.out());
    ASSERT_FALSE(CORBA::is_nil(rest));
    std::vector<std::string> ids = Ids(piece);
    std::vector<std::size_t> sizes = {piece->length()};
    // What happens meanwhile does not show in the list.
    Feed("event=clear;id=a2000\n");
    ASSERT_TRUE(WaitFor([&] {
        NbiAlarm::AlarmSeq_var alarms;
        NbiAlarm::AlarmIterator_var another;
        const NbiAlarm::Position listed = m_service->getActiveAlarms(0, alarms.out(), another.out());
        another->destroy();  // too many of them would push out the first
        return listed.sequenceNumber == kAlarms + 1;
    }));
    while (rest->next_n(4000000000, piece.out())) {
        sizes.push_back(piece->length());
        for (const std::string& id : Ids(piece)) ids.push_back(id);
    }

    EXPECT_EQ(piece->length(), 0u);
    EXPECT_EQ(sizes, (std::vector<std::size_t>{100, 1000, 1000, 400}));  // no more than 1000 in one message
    ASSERT_EQ(ids.size(), std::size_t{kAlarms});
    for (int i = 0; i < kAlarms; ++i) {
        ASSERT_EQ(ids[static_cast<std::size_t>(i)], "a" + std::to_string(10001 + i).substr(1));
    }
    EXPECT_TRUE(IsGone(rest)) << "an iterator that was read to its end";
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

TEST_F(AgentCorbaIteratorTest, EndsWhenItsClientIsDone) {
    ASSERT_NO_FATAL_FAILURE(StartWithManyAlarms());
    NbiAlarm::AlarmSeq_var piece;
    const NbiAlarm::AlarmIterator_var rest = First(10, piece.out());
    EXPECT_EQ(piece->length(), 10u);
    EXPECT_TRUE(rest->next_n(0, piece.out()));
    EXPECT_EQ(piece->length(), 0u);

    rest->destroy();

    EXPECT_TRUE(IsGone(rest));
    EXPECT_THROW(rest->destroy(), CORBA::OBJECT_NOT_EXIST);
}

TEST_F(AgentCorbaIteratorTest, IsReapedWhenItsClientHasForgottenIt) {
    m_root.SetItem("CorbaIteratorIdleSeconds", "1");
    ASSERT_NO_FATAL_FAILURE(StartWithManyAlarms());
    NbiAlarm::AlarmSeq_var piece;
    const NbiAlarm::AlarmIterator_var rest = First(10, piece.out());

    // Asking it would keep it alive; asking about it does not.
    ASSERT_TRUE(WaitFor([&] { return rest->_non_existent(); }));

    EXPECT_TRUE(IsGone(rest));
    EXPECT_TRUE(m_root.WaitForLog("iterators that were left alone"));
}

TEST_F(AgentCorbaIteratorTest, TheIdlestGoesWhenThereAreTooMany) {
    ASSERT_NO_FATAL_FAILURE(StartWithManyAlarms());
    NbiAlarm::AlarmSeq_var piece;
    std::vector<NbiAlarm::AlarmIterator_var> iterators;
    for (int i = 0; i < 100; ++i) iterators.emplace_back(First(10, piece.out()));
    EXPECT_FALSE(IsGone(iterators[0]));  // used: now the second is the idlest

    const NbiAlarm::AlarmIterator_var oneMore = First(10, piece.out());

    EXPECT_TRUE(IsGone(iterators[1]));
    EXPECT_FALSE(IsGone(iterators[0]));
    EXPECT_FALSE(IsGone(iterators[2]));
    EXPECT_FALSE(IsGone(oneMore));
}

TEST_F(AgentCorbaIteratorTest, TheIdlestThatIsAloneWithItsListGoesWhenThereAreEightOtherLists) {
    ASSERT_NO_FATAL_FAILURE(StartWithManyAlarms());
    NbiAlarm::AlarmSeq_var piece;
    int changes = 0;
    const auto changedList = [&] {
        m_service->acknowledge("a0001", std::to_string(++changes).c_str());
        return First(1, piece.out());
    };
    const NbiAlarm::AlarmIterator_var shared = changedList();
    const NbiAlarm::AlarmIterator_var sharing = First(1, piece.out());
    std::vector<NbiAlarm::AlarmIterator_var> alone;
    for (int i = 0; i < 7; ++i) alone.emplace_back(changedList());
    EXPECT_FALSE(IsGone(alone[0]));  // used: now the second is the idlest

    const NbiAlarm::AlarmIterator_var ninth = changedList();
    const NbiAlarm::AlarmIterator_var sharingTheNinth = First(1, piece.out());

    EXPECT_TRUE(IsGone(alone[1]));
    EXPECT_FALSE(IsGone(alone[0]));
    EXPECT_FALSE(IsGone(alone[2]));
    EXPECT_FALSE(IsGone(shared));
    EXPECT_FALSE(IsGone(sharing));
    EXPECT_FALSE(IsGone(ninth));
    EXPECT_FALSE(IsGone(sharingTheNinth));
}

TEST_F(AgentCorbaIteratorTest, ListsThatSeveralShareAreBoundedTheSame) {
    ASSERT_NO_FATAL_FAILURE(StartWithManyAlarms());
    NbiAlarm::AlarmSeq_var piece;
    std::vector<NbiAlarm::AlarmIterator_var> iterators;
    for (int list = 0; list < 20; ++list) {
        m_service->acknowledge("a0001", std::to_string(list).c_str());
        iterators.emplace_back(First(1, piece.out()));
        iterators.emplace_back(First(1, piece.out()));
    }

    const auto left = std::count_if(iterators.begin(), iterators.end(),
                                    [](const NbiAlarm::AlarmIterator_var& iterator) { return !IsGone(iterator); });

    EXPECT_EQ(left, 16);  // of the eight latest lists
    EXPECT_FALSE(IsGone(iterators.back()));
}

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
    const CORBA::Object_var object = m_client->Resolve("zo");
    const CosNaming::NamingContext_var context = CosNaming::NamingContext::_narrow(object);
    CosNaming::Name name;
    name.length(1);
    name[0].id = "AlarmAgent";

    context->unbind(name);

    EXPECT_FALSE(CORBA::is_nil(NbiAlarm::Agent_var(m_client->Agent())));
}

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
    m_events = std::make_unique<test::EventServer>("ISO-8859-1");
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
    const test::GiopTarget target(m_service);
    test::LineClient client(target.port, {"127.0.0.1", 4096});
    const std::string request = test::GiopRequest(target.key, "getActiveAlarms").Number(1000).Bytes();
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

TEST_F(AgentCorbaTest, LeavesItsNameToAnotherAgentThatAnswersAndFollowsIt) {
    const std::string bound = "zo/AlarmAgent is bound at 127.0.0.1:" + m_naming->Port();
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed("event=raise;id=7;object=NE-7;severity=minor\n");
    ASSERT_TRUE(WaitForSize(1));

    test::AgentRoot secondRoot;
    Configure(secondRoot);
    secondRoot.Append("var/alarms.feed", "event=raise;id=8;object=NE-8;severity=major\n");
    test::Agent second(secondRoot);
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

    test::AgentRoot secondRoot;
    Configure(secondRoot);
    test::Agent second(secondRoot);

    EXPECT_TRUE(secondRoot.WaitForLog("zo/AlarmAgent is bound at 127.0.0.1:" + m_naming->Port()));
}

TEST_F(AgentCorbaTest, RefusesClientsFromOtherAddresses) {
    m_root.SetItem("acl", "127.0.0.2");
    StartAgentThatRefusesUs();
}

TEST_F(AgentCorbaTest, SkipsAclEntriesThatAreNoAddresses) {
    m_root.SetItem("acl", "foo, 127.0.0.1, *");
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());

    EXPECT_EQ(List()->length(), 0u);
    EXPECT_EQ(LogCount("corba_start.cfg: '*' in acl is not an IPv4 address; entry skipped\n"), 1u);
    EXPECT_EQ(LogCount("corba_start.cfg: 'foo' in acl is not an IPv4 address; entry skipped\n"), 1u);
}

TEST_F(AgentCorbaTest, AnAclWithoutAnyAddressLetsNobodyIn) {
    m_root.SetItem("acl", "*");
    StartAgentThatRefusesUs();
}

TEST_F(AgentCorbaTest, AnOccupiedPortFailsTheStartWithAReason) {
    m_root.SetItem("CorbaAgentPort", m_naming->Port());
    test::Agent agent(m_root);

    EXPECT_EQ(agent.Process().Wait(), 1);

    EXPECT_NE(agent.Err().find("zo_agent: cannot initialise zo_corba_bundle (service OrbSvc)"), std::string::npos)
        << agent.Err();
    EXPECT_TRUE(m_root.WaitForLog("cannot start the ORB on giop:tcp:127.0.0.1:" + m_naming->Port() + ": "));
}

/// The client program, zo_nms.
class NmsTest : public AgentCorbaTest {
protected:
    struct Result {
        int status;
        std::string out;
        std::string err;
    };

    test::ChildProcess::Command Command(const std::vector<std::string>& options) const {
        test::ChildProcess::Command command;
        command.words = {ZO_NMS};
        command.words.insert(command.words.end(), options.begin(), options.end());
        command.out = m_root / "nms.out";
        command.err = m_root / "nms.err";
        return command;
    }

    std::string Out() const { return test::ReadFile(m_root / "nms.out"); }
    std::string Err() const { return test::ReadFile(m_root / "nms.err"); }

    Result Run(const std::vector<std::string>& options) const {
        for (const char* const file : {"nms.out", "nms.err"}) std::filesystem::remove(m_root / file);
        test::ChildProcess nms(Command(options));
        const int status = nms.Wait();
        return {status, Out(), Err()};
    }

    std::string Naming() const { return "127.0.0.1:" + m_naming->Port(); }
};

TEST_F(NmsTest, ListsTheAlarms) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed(
        "event=raise;id=7;object=NE-7;severity=major;cause=fire;time=noon;text=\xd6\xd0\n"
        "event=raise;id=8;object=NE-8;severity=warning\n");
    ASSERT_TRUE(WaitForSize(2));

    const Result result = Run({"--naming", Naming()});

    EXPECT_EQ(result.out,
              "ALARM id=7;object=NE-7;severity=major;cause=fire;time=noon;text=\xe4\xb8\xad;ack.user=\n"
              "ALARM id=8;object=NE-8;severity=warning;cause=;time=;text=;ack.user=\n"
              "END 2\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(NmsTest, ListsMoreAlarmsThanOneReplyHolds) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed(RaiseLines("a", 950));
    ASSERT_TRUE(WaitForSize(950));

    const Result result = Run({"--naming", Naming(), "--list"});

    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 951);
    EXPECT_NE(result.out.find("\nALARM id=a0950;object=NE-0950;"), std::string::npos);
    EXPECT_EQ(result.out.substr(result.out.size() - 8), "END 950\n");
}

TEST_F(NmsTest, Acknowledges) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed("event=raise;id=7;object=NE-7;severity=minor\n");
    ASSERT_TRUE(WaitForSize(1));

    const Result result = Run({"--naming", Naming(), "--ack", "7", "--user", "bob"});

    EXPECT_EQ(result.out, "ACKNOWLEDGED id=7;ack.user=bob\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(Text(NbiAlarm::Alarm_var(m_service->getAlarm("7"))), "7|NE-7|MINOR||||bob");
}

TEST_F(NmsTest, AcknowledgingAnUnknownAlarmFails) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());

    const Result result = Run({"--naming", Naming(), "--ack", "7"});

    EXPECT_EQ(result.err, "zo_nms: no alarm '7' is active\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 1);
}

TEST_F(NmsTest, WatchesUntilItIsAskedToEnd) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed("event=raise;id=7;object=NE-7;severity=minor\n");
    ASSERT_TRUE(WaitForSize(1));
    ASSERT_TRUE(m_client->WaitForName("zo/AlarmChannel"));
    test::ChildProcess nms(Command({"--naming", Naming(), "--list", "--watch"}));
    ASSERT_TRUE(WaitFor([&] { return Out().find("WATCHING\n") != std::string::npos; })) << Err();

    Feed(
        "event=change;id=7;severity=critical\n"
        "event=clear;id=7\n");

    const std::string expected =
        "ALARM id=7;object=NE-7;severity=minor;cause=;time=;text=;ack.user=\n"
        "END 1\n"
        "WATCHING\n"
        "CHANGED 2 id=7;severity=critical\n"
        "CLEARED 3 id=7\n";
    EXPECT_TRUE(WaitFor([&] { return Out() == expected; })) << Out() << Err();
    nms.Signal(SIGTERM);
    EXPECT_EQ(nms.Wait(), 0);
    EXPECT_EQ(Err(), "");
}

TEST_F(NmsTest, WatchesOnWhenTheEventServiceWasRestartedWithoutItsData) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_TRUE(m_client->WaitForName("zo/AlarmChannel"));
    test::ChildProcess nms(Command({"--naming", Naming(), "--watch"}));
    ASSERT_TRUE(WaitFor([&] { return Out().find("WATCHING\n") != std::string::npos; })) << Err();

    m_events->Kill();
    ASSERT_TRUE(WaitFor([&] { return Err().find("zo_nms: the event channel is away") != std::string::npos; }));
    ASSERT_TRUE(m_events->StartEmpty());
    ASSERT_TRUE(WaitFor([&] { return Err().find("zo_nms: the event channel is there again\n") != std::string::npos; }))
        << Err() << m_root.Log();
    Feed("event=raise;id=7;object=NE-7;severity=minor\n");

    EXPECT_TRUE(WaitFor([&] { return Out().find("RAISED 1 id=7;object=NE-7;severity=minor;") != std::string::npos; }))
        << Out();
}

TEST_F(NmsTest, TellsARestartOfTheAgentWhoseNumbersAreBelowThoseOfTheList) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed(RaiseLines("a", 3));
    ASSERT_TRUE(WaitForSize(3));
    ASSERT_TRUE(m_client->WaitForName("zo/AlarmChannel"));
    test::ChildProcess nms(Command({"--naming", Naming(), "--list", "--watch"}));
    ASSERT_TRUE(WaitFor([&] { return Out().find("END 3\nWATCHING\n") != std::string::npos; })) << Err();
    const std::string before = Out();

    ASSERT_NO_FATAL_FAILURE(RestartAgent());
    Feed(
        "event=raise;id=7;object=NE-7;severity=minor\n"
        "event=clear;id=7\n");

    const std::string expected =
        "RESTARTED the agent has begun anew, list its alarms again\n"
        "RAISED 1 id=7;object=NE-7;severity=minor;cause=;time=;text=;ack.user=\n"
        "CLEARED 2 id=7\n";
    EXPECT_TRUE(WaitFor([&] { return Out() == before + expected; })) << Out() << Err();
}

TEST_F(NmsTest, TellsThatTheNamingServiceDoesNotAnswer) {
    m_naming->Kill();

    const Result result = Run({"--naming", Naming()});

    EXPECT_EQ(result.err, "zo_nms: the naming service at " + Naming() + " does not answer (TRANSIENT_ConnectFailed)\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(NmsTest, TellsThatThereIsNoAgent) {
    const Result result = Run({"--naming", Naming()});

    EXPECT_EQ(result.err,
              "zo_nms: zo/AlarmAgent is not in the naming service at " + Naming() + "; is the agent running?\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(NmsTest, TellsThatTheAgentDoesNotAnswer) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    m_agent.reset();  // kills it

    const Result result = Run({"--naming", Naming()});

    EXPECT_EQ(result.err, "zo_nms: the agent or the event channel does not answer (TRANSIENT_ConnectFailed)\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(NmsTest, HelpGoesToStandardOutput) {
    const Result result = Run({"--help"});

    EXPECT_EQ(result.out.substr(0, 14), "usage: zo_nms ");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(NmsTest, WrongArgumentsShowTheUsage) {
    for (const auto& options : std::vector<std::vector<std::string>>{
             {"--naming"}, {"--watch", "0"}, {"--watch", "x"}, {"--ack", ""}, {"alarms"}}) {
        const Result result = Run(options);

        EXPECT_EQ(result.err.substr(0, 14), "usage: zo_nms ");
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.status, 2);
    }
}

}  // namespace

#else

TEST(AgentCorbaTest, NeedsOmniOrb) {
    GTEST_SKIP() << "built without omniORB and omniEvents, see scripts/install-deps.sh corba";
}

#endif
