// More CORBA clients than the agent takes, or can take.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <list>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <sys/resource.h>

#include "alarm.hh"
#include "integration/agentcorbatest.h"
#include "support/giop.h"
#include "support/wait.h"

namespace test {
namespace {

class AgentCorbaLoadTest : public AgentCorbaTest {
protected:
    void StartAgentAndTarget() {
        ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
        m_target = std::make_unique<GiopTarget>(m_service);
        EXPECT_TRUE(IsServed());  // has a connection from now on
    }

    bool IsServed() {
        try {
            return List()->length() == 0;
        } catch (const CORBA::SystemException&) {
            return false;
        }
    }

    std::string Call(GiopClient& client) const {
        return client.Call(GiopRequest(m_target->key, "getActiveAlarms").Number(1));
    }

    /// How many of these many new clients are served; the others are closed.
    std::size_t ServedOf(std::size_t count) {
        std::size_t served = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const std::string answer = Call(m_clients.emplace_back(m_target->port));
            if (answer == "Reply") ++served;
        }
        return served;
    }

    /// Until a new client is served.
    bool WaitUntilOneIsServed() const {
        return WaitFor([this] {
            GiopClient client(m_target->port);
            return Call(client) == "Reply";
        });
    }

    /// The agent's, apart from those that it has from this process.
    std::size_t HighestDescriptor() const {
        namespace fs = std::filesystem;
        std::size_t highest = 0;
        for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(m_agent->Process().Pid()) + "/fd")) {
            const std::string number = entry.path().filename().string();
            std::error_code none;
            const fs::path ours = fs::read_symlink("/proc/self/fd/" + number, none);
            if (none || ours != fs::read_symlink(entry)) highest = std::max<std::size_t>(highest, std::stoul(number));
        }
        return highest;
    }

    std::unique_ptr<GiopTarget> m_target;
    std::list<GiopClient> m_clients;
};

TEST_F(AgentCorbaLoadTest, ClosesTheConnectionsBeyondTheLimitAndServesTheOthers) {
    m_root.SetItem("CorbaMaxConnections", "4");
    ASSERT_NO_FATAL_FAILURE(StartAgentAndTarget());

    EXPECT_EQ(ServedOf(10), 3u);

    EXPECT_EQ(Call(m_clients.front()), "Reply");
    EXPECT_TRUE(IsServed());
    EXPECT_TRUE(m_root.WaitForLog("more than 4 connections (CorbaMaxConnections); closing the latest"));
    EXPECT_EQ(LogCount("(CorbaMaxConnections)"), 1u);
    m_clients.clear();
    EXPECT_TRUE(WaitUntilOneIsServed());
}

TEST_F(AgentCorbaLoadTest, ClosesConnectionsForWhichThereIsNoDescriptorUntilThereAreSome) {
    if (std::string(ZO_SANITIZE).find("undefined") != std::string::npos) {
        GTEST_SKIP() << "this sanitizer checks types with the help of a pipe, for which there is no descriptor";
    }
    m_root.SetItem("CorbaMaxConnections", "1000");  // not what is to be reached here
    ASSERT_NO_FATAL_FAILURE(StartAgentAndTarget());
    const pid_t agent = m_agent->Process().Pid();
    rlimit before{};
    ASSERT_EQ(prlimit(agent, RLIMIT_NOFILE, nullptr, &before), 0);
    const std::size_t highest = HighestDescriptor();
    const rlimit exhausted{highest + 1, before.rlim_max};
    ASSERT_EQ(prlimit(agent, RLIMIT_NOFILE, &exhausted, nullptr), 0);

    // One that nobody accepts would wait for ever.
    EXPECT_LE(ServedOf(highest + 10), highest);

    EXPECT_TRUE(m_root.WaitForLog("no file descriptor is left"));
    EXPECT_TRUE(IsServed());
    ASSERT_EQ(prlimit(agent, RLIMIT_NOFILE, &before, nullptr), 0);
    EXPECT_TRUE(WaitUntilOneIsServed());
    EXPECT_TRUE(m_root.WaitForLog("there are file descriptors again"));
    EXPECT_EQ(LogCount("no file descriptor is left"), 1u);
}

TEST_F(AgentCorbaLoadTest, RefusesAnAddressThatAclLacksWithOneRecordAMinute) {
    const auto from = [this](const char* address) {
        LineClientSettings settings;
        settings.from = address;
        GiopClient client(m_target->port, settings);
        return Call(client);
    };
    m_root.SetItem("CorbaMaxConnections", "2");
    ASSERT_NO_FATAL_FAILURE(StartAgentAndTarget());

    for (int i = 0; i < 20; ++i) EXPECT_EQ(from("127.0.0.2"), "");
    EXPECT_EQ(from("127.0.0.3"), "");
    EXPECT_EQ(from("127.0.0.1"), "Reply");

    EXPECT_EQ(LogCount("client 127.0.0.2 refused, its address is in no acl item"), 1u);
    EXPECT_EQ(LogCount("client 127.0.0.3 refused, its address is in no acl item"), 1u);
    EXPECT_EQ(LogCount("(CorbaMaxConnections)"), 0u) << "who is refused does not count";
}

class FewDescriptorsTest : public AgentCorbaLoadTest {
protected:
    void StartAgent() override {
        m_agent =
            std::make_unique<Agent>(m_root, std::vector<std::string>(), Agent::Environment(),
                                    std::vector<std::string>{"/bin/sh", "-c", "ulimit -Sn 100 && exec \"$@\"", "sh"});
        ASSERT_TRUE(m_agent->WaitUntilReady()) << m_agent->Err() << m_root.Log();
    }
};

TEST_F(FewDescriptorsTest, TakeFewerConnectionsAndAreReported) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndTarget());

    EXPECT_TRUE(
        m_root.WaitForLog("200 connections (CorbaMaxConnections) need more descriptors than the 100 of this "
                          "process (ulimit -n), of which "));
    const std::size_t served = ServedOf(150);
    EXPECT_GT(served, 5u);
    EXPECT_LT(served, 68u);
    EXPECT_TRUE(IsServed());
    EXPECT_EQ(LogCount("no file descriptor is left"), 0u);
}

TEST_F(AgentCorbaLoadTest, ABadNumberOfTextClientsIsReportedByTheTextServerAlone) {
    m_root.SetBundles({"zo_base_bundle", "zo_domain_bundle", "zo_ascii_bundle", "zo_corba_bundle"});
    m_root.SetItem("AsciiMaxClients", "010");

    ASSERT_NO_FATAL_FAILURE(StartAgent());

    EXPECT_EQ(LogCount("AsciiMaxClients=010 is not a decimal number from 1 to 512, taking 32\n"), 1u) << m_root.Log();
}

}  // namespace
}  // namespace test
