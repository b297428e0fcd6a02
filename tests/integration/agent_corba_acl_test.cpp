// Who may connect to the agent's CORBA side.
#include <gtest/gtest.h>

#include "integration/agentcorbatest.h"

namespace test {
namespace {

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

}  // namespace
}  // namespace test
