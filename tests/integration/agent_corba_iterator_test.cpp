// The iterator over a long list: what it gives, and when it goes.
#include <cstddef>

#include <gtest/gtest.h>

#include <omniORB4/CORBA.h>

#include "alarm.hh"
#include "integration/agentcorbatest.h"
#include "support/wait.h"

namespace test {
namespace {

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

}  // namespace
}  // namespace test
