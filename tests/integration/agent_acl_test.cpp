// Who may connect to the agent's text server.
#include <string>

#include <gtest/gtest.h>

#include "support/agent.h"
#include "support/alarmfeed.h"
#include "support/lineclient.h"

namespace test {
namespace {

// What a client at that address gets as an answer to LIST.
std::string ListFor(const Agent& agent, const std::string& address) {
    LineClient client(agent.TextPort(), {address});
    client.Send("LIST\n");
    return client.ReadThrough("END\n");
}

TEST(AgentText, RefusesAddressesThatAreInNoAclItem) {
    const AgentRoot root;
    root.SetItem("acl", "127.0.0.1, 127.0.0.3");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    LineClient stranger(agent.TextPort(), {"127.0.0.2"});
    stranger.Send("LIST\n");
    EXPECT_EQ(stranger.ReadToEnd(), "");
    EXPECT_FALSE(stranger.IsOpen());
    for (const char* const address : {"127.0.0.1", "127.0.0.3"}) {
        EXPECT_EQ(ListFor(agent, address), "LIST 0 0\nEND\n");
    }
    EXPECT_EQ(Count(root.Log(), "client 127.0.0.2:" + std::to_string(stranger.Port()) +
                                    " refused, its address is in no acl item\n"),
              1U);
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentText, WithoutAclItemsOnlyLoopbackMayConnect) {
    const AgentRoot root;
    root.SetItem("acl", "");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    LineClient stranger(agent.TextPort(), {"127.0.0.2"});
    EXPECT_EQ(stranger.ReadToEnd(), "");
    EXPECT_FALSE(stranger.IsOpen());
    EXPECT_EQ(ListFor(agent, "127.0.0.1"), "LIST 0 0\nEND\n");
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentText, SkipsAclEntriesThatAreNoAddressesAndReportsEachOnce) {
    const AgentRoot root;
    root.SetItem("acl", "*, 127.0.0.3, localhost, ::1, 127.0.0.0/8, 127.0.0.01, *");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    LineClient stranger(agent.TextPort());
    EXPECT_EQ(stranger.ReadToEnd(), "");
    EXPECT_EQ(ListFor(agent, "127.0.0.3"), "LIST 0 0\nEND\n");
    EXPECT_EQ(agent.Stop(), 0);
    const std::string log = root.Log();
    for (const std::string entry : {"*", "localhost", "::1", "127.0.0.0/8", "127.0.0.01"}) {
        const std::string report = "corba_start.cfg: '" + entry + "' in acl is not an IPv4 address; entry skipped\n";
        EXPECT_EQ(Count(log, report), 1U) << report;
    }
    EXPECT_EQ(Count(log, "; entry skipped\n"), 5U);
    EXPECT_EQ(Count(log, " for 127.0.0.3\n"), 1U) << log;
}

TEST(AgentText, AnAclWithoutAnyAddressLetsNobodyIn) {
    const AgentRoot root;
    root.SetItem("acl", "*");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    LineClient local(agent.TextPort());
    EXPECT_EQ(local.ReadToEnd(), "");
    EXPECT_FALSE(local.IsOpen());
    EXPECT_EQ(agent.Stop(), 0);
    EXPECT_EQ(Count(root.Log(), " for nobody\n"), 1U) << root.Log();
}

// An item whose reading in one piece would end with the last digit but one.
std::string AclThatIsOneByteTooLong() {
    const std::string last = "127.0.0.25";
    std::string item = "acl=127.0.0.3,";
    return item + std::string(1024 - item.size() - last.size(), ' ') + last;
}

TEST(AgentText, TakesNoAddressFromAnAclItemThatIsTooLongToBeReadInOnePiece) {
    const AgentRoot root;
    root.SetItem("acl", "");
    root.Append("share/conf/corba_start.cfg",
                "acl=127.0.0.4\n" + AclThatIsOneByteTooLong() + "\n# " + std::string(1021, 'x') + "acl=127.0.0.5\n");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    EXPECT_EQ(ListFor(agent, "127.0.0.4"), "LIST 0 0\nEND\n");
    for (const char* const address : {"127.0.0.1", "127.0.0.2", "127.0.0.3", "127.0.0.5", "127.0.0.25"}) {
        EXPECT_EQ(ListFor(agent, address), "") << address;
    }
    EXPECT_EQ(Count(root.Log(), ": acl with more than 1022 bytes; item skipped\n"), 1U) << root.Log();
    EXPECT_EQ(Count(agent.Err(), ": more than 1022 bytes; it is not read as it stands there\n"), 2U) << agent.Err();
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentText, TakesTheAddressesOfTheLongestAclItemThatIsReadInOnePiece) {
    const AgentRoot root;
    root.SetItem("acl", "");
    std::string item = AclThatIsOneByteTooLong();
    item.erase(item.find(' '), 2);
    ASSERT_EQ(item.size(), 1022U);
    root.Append("share/conf/corba_start.cfg", item + "\n");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    EXPECT_EQ(ListFor(agent, "127.0.0.25"), "LIST 0 0\nEND\n");
    EXPECT_EQ(ListFor(agent, "127.0.0.3"), "LIST 0 0\nEND\n");
    EXPECT_EQ(ListFor(agent, "127.0.0.2"), "");
    EXPECT_EQ(agent.Err(), "");
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentText, AnAclItemThatIsCutLetsNobodyIn) {
    const AgentRoot root;
    const std::string nul(1, '\0');
    root.SetItem("acl", "127.0.0.2" + nul + "5");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    EXPECT_EQ(ListFor(agent, "127.0.0.1"), "");
    EXPECT_EQ(ListFor(agent, "127.0.0.2"), "");
    EXPECT_EQ(Count(root.Log(), ": acl with a NUL byte; item skipped\n"), 1U) << root.Log();
    EXPECT_EQ(Count(root.Log(), " for nobody\n"), 1U) << root.Log();
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentText, AnAclItemWithAnEmptyEntryIsReportedAndCountsForNothing) {
    const AgentRoot root;
    root.SetItem("acl", "127.0.0.2,,127.0.0.3");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    EXPECT_EQ(ListFor(agent, "127.0.0.2"), "");
    EXPECT_EQ(ListFor(agent, "127.0.0.1"), "LIST 0 0\nEND\n");
    EXPECT_EQ(Count(root.Log(), ": acl with an empty entry; item skipped\n"), 1U) << root.Log();
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentText, RecordsTheRefusalOfAnAddressOnceHoweverOftenItConnects) {
    const AgentRoot root;
    root.SetItem("acl", "127.0.0.1");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    for (int i = 0; i < 200; ++i) EXPECT_EQ(ListFor(agent, "127.0.0.2"), "");
    EXPECT_EQ(ListFor(agent, "127.0.0.3"), "");

    const std::string log = root.Log();
    EXPECT_EQ(Count(log, "client 127.0.0.2:"), 1U) << log;
    EXPECT_EQ(Count(log, "client 127.0.0.3:"), 1U) << log;
    EXPECT_EQ(agent.Stop(), 0);
}

}  // namespace
}  // namespace test
