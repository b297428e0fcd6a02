// The agent as clients of other ORBs see it: by the messages of GIOP.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "alarm.hh"
#include "integration/agentcorbatest.h"
#include "support/giop.h"

namespace test {
namespace {

constexpr char kDataConversion[] = "IDL:omg.org/CORBA/DATA_CONVERSION:1.0";

class AgentCorbaGiopTest : public AgentCorbaTest {
protected:
    /// An agent with two alarms that have the same text, which is GBK.
    void StartWithText(const std::string& text) {
        ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
        for (const char* const id : {"1", "2"}) {
            Feed("event=raise;id=" + std::string(id) + ";object=NE;severity=minor;text=" + text + "\n");
        }
        ASSERT_TRUE(WaitForSize(2));
        m_target = std::make_unique<GiopTarget>(m_service);
    }

    /// Lists the alarms, the first in the reply and the other behind an iterator.
    static std::string List(GiopClient& client, const GiopTarget& target, int minor, std::uint32_t codeSet) {
        return client.Call(GiopRequest(target.key, "getActiveAlarms", minor, codeSet).Number(1));
    }
    std::string List(int minor, std::uint32_t codeSet) const {
        GiopClient client(m_target->port);
        return List(client, *m_target, minor, codeSet);
    }

    std::unique_ptr<GiopTarget> m_target;
};

TEST_F(AgentCorbaGiopTest, AsciiTextsReachEveryClient) {
    ASSERT_NO_FATAL_FAILURE(StartWithText("ascii"));

    for (int minor = 0; minor <= 2; ++minor) {
        for (const std::uint32_t codeSet : {kNoCodeSet, kLatin1, kUtf8}) {
            EXPECT_EQ(List(minor, codeSet), "Reply") << "GIOP 1." << minor << ", code set " << codeSet;
        }
    }
}

TEST_F(AgentCorbaGiopTest, LatinTextsAreIso8859ForAClientWithoutUtf8OrGiop11) {
    const std::string latin("\2\0\0\0\xe9\0", 6);  // an e with an acute accent
    const std::string utf8("\3\0\0\0\xc3\xa9\0", 7);
    ASSERT_NO_FATAL_FAILURE(StartWithText("\xa8\xa6"));

    for (int minor = 0; minor <= 2; ++minor) {
        for (const std::uint32_t codeSet : {kNoCodeSet, kLatin1, kUtf8}) {
            GiopClient client(m_target->port);
            ASSERT_EQ(List(client, *m_target, minor, codeSet), "Reply");
            const std::string& expected = minor > 0 && codeSet == kUtf8 ? utf8 : latin;
            EXPECT_NE(client.Message().find(expected), std::string::npos) << "GIOP 1." << minor << ", " << codeSet;
        }
    }
}

TEST_F(AgentCorbaGiopTest, OtherTextsNeedUtf8AndGiop11) {
    ASSERT_NO_FATAL_FAILURE(StartWithText("\xd6\xd0"));

    for (const std::uint32_t codeSet : {kNoCodeSet, kLatin1, kUtf8}) {
        EXPECT_EQ(List(0, codeSet), "IDL:omg.org/CORBA/DATA_CONVERSION:1.0");
    }
    for (const int minor : {1, 2}) {
        EXPECT_EQ(List(minor, kUtf8), "Reply");
        for (const std::uint32_t codeSet : {kNoCodeSet, kLatin1}) {
            GiopClient client(m_target->port);
            EXPECT_EQ(List(client, *m_target, minor, codeSet), "MessageError");
            EXPECT_TRUE(client.IsClosed());
        }
    }
}

TEST_F(AgentCorbaGiopTest, AListWhoseReplyCannotBeMadeLeavesNoIteratorBehind) {
    ASSERT_NO_FATAL_FAILURE(StartWithText("\xd6\xd0"));
    NbiAlarm::AlarmSeq_var alarms;
    NbiAlarm::AlarmIterator_var rest;
    m_service->getActiveAlarms(1, alarms.out(), rest.out());

    for (int i = 0; i < 120; ++i) ASSERT_EQ(List(0, kNoCodeSet), "IDL:omg.org/CORBA/DATA_CONVERSION:1.0");
    for (int i = 0; i < 120; ++i) ASSERT_EQ(List(2, kNoCodeSet), "MessageError");

    EXPECT_TRUE(rest->next_n(1, alarms.out()));
    EXPECT_STREQ(alarms[0].id, "2");
}

}  // namespace
}  // namespace test
