// Ending the agent, also when it does not end.
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/agent.h"
#include "support/alarmfeed.h"
#include "support/lineclient.h"
#include "support/wait.h"

namespace {

using test::Agent;
using test::AgentRoot;
using test::Count;
using test::LineClient;
using test::WaitFor;

constexpr int kBrokenOff = 3;

/// A root whose bundles are not initialised before somebody lets them.
class HeldRoot : public AgentRoot {
public:
    /// @param service whether a service of the bundle is what takes its time
    explicit HeldRoot(bool service) : m_pipe(*this / (service ? "var/holdsvc" : "var/hold")) {
        SetBundles({"zo_base_bundle", "zo_domain_bundle", "zo_hold_bundle", "zo_ascii_bundle"});
        Write("etc/oss_cfg/nbi/conf/zo_hold_bundle/svc.cfg", service ? "service=zo_hold_bundle:HoldSvc\n" : "# none\n");
        if (mkfifo(m_pipe.c_str(), 0600) != 0) throw std::runtime_error("mkfifo failed");
    }

    /// @return the end of the pipe whose closing lets the bundle go on; -1 when the agent
    ///         does not come to it
    int WaitUntilHeld() const {
        int hold = -1;
        // Succeeds when the bundle has opened the pipe, in the midst of InitAllBundles.
        WaitFor([&] { return (hold = open(m_pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) != -1; });
        return hold;
    }

private:
    const std::string m_pipe;
};

Agent::Environment WithHoldBundle() {
    return {{"LD_LIBRARY_PATH", ZO_FIXTURES_DIR}};
}

bool WaitForError(const Agent& agent, const std::string& text, std::size_t times = 1) {
    return WaitFor([&] { return Count(agent.Err(), text) >= times; });
}

/// Whether the agent has said that it waits for something that has to do with its bundles:
/// for which of the steps that follow each other quickly depends on the moment.
bool TellsOfTheStop(const Agent& agent) {
    const std::string error = agent.Err();
    const std::size_t begin = error.find("zo_agent: waiting for ");
    return begin != std::string::npos && error.find(" since 20", begin) != std::string::npos &&
           error.find("bundle", begin) < error.find(" since 20", begin);
}

// ---- Stopping ----

TEST(AgentSignals, ASecondSignalTellsWhatTheStopWaitsForAndTheStopGoesOn) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    agent.Process().Signal(SIGTERM);
    ASSERT_TRUE(root.WaitForLog("===== Start to Finalize -[ AlarmSvc ] ====="));
    EXPECT_EQ(agent.Err(), "");

    agent.Process().Signal(SIGINT);

    ASSERT_TRUE(WaitForError(agent, "; one more signal ends the process\n"));
    EXPECT_EQ(agent.Process().Wait(), 0);
    EXPECT_TRUE(TellsOfTheStop(agent)) << agent.Err();
    EXPECT_EQ(Count(agent.Err(), "\n"), 1U) << agent.Err();
}

TEST(AgentSignals, AThirdSignalEndsTheProcessAtOnce) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    agent.Process().Signal(SIGTERM);
    ASSERT_TRUE(root.WaitForLog("===== Start to Finalize -[ AlarmSvc ] ====="));
    agent.Process().Signal(SIGTERM);
    ASSERT_TRUE(WaitForError(agent, "; one more signal ends the process\n"));

    agent.Process().Signal(SIGTERM);

    EXPECT_EQ(agent.Process().Wait(), kBrokenOff);
    EXPECT_EQ(Count(agent.Err(), "; the process ends now\n"), 1U) << agent.Err();
}

TEST(AgentSignals, ASignalDuringAStopThatNobodyAskedForTellsWhatItWaitsFor) {
    const AgentRoot root;
    Agent agent(root, {"--for", "0"});
    ASSERT_TRUE(root.WaitForLog("===== Start to Finalize -[ AlarmSvc ] ====="));

    agent.Process().Signal(SIGTERM);

    EXPECT_TRUE(WaitFor([&] { return TellsOfTheStop(agent); }));
    EXPECT_EQ(agent.Process().Wait(), 0);
}

// ---- Starting ----

TEST(AgentSignals, ASignalDuringAnInitThatHangsTellsWhatTheAgentWaitsFor) {
    const HeldRoot root(false);
    Agent agent(root, {}, WithHoldBundle());
    const int hold = root.WaitUntilHeld();
    ASSERT_NE(hold, -1) << agent.Err();

    agent.Process().Signal(SIGTERM);

    EXPECT_TRUE(WaitForError(agent, "zo_agent: waiting for zo_hold_bundle to be initialised since 20"));
    EXPECT_EQ(Count(agent.Err(), "\n"), 1U) << agent.Err();
    close(hold);
    EXPECT_EQ(agent.Process().Wait(), 0);
    EXPECT_EQ(agent.Out().find("zo_agent: ready\n"), std::string::npos);
    EXPECT_NE(root.Log().find("===== Start to Finalize -[ AlarmSvc ] ====="), std::string::npos);
}

TEST(AgentSignals, ThreeSignalsEndAnAgentWhoseServiceHangsInItsInit) {
    const HeldRoot root(true);
    Agent agent(root, {}, WithHoldBundle());
    const int hold = root.WaitUntilHeld();
    ASSERT_NE(hold, -1) << agent.Err();
    const std::string waiting = "zo_agent: waiting for zo_hold_bundle (service HoldSvc) to be initialised since 20";

    agent.Process().Signal(SIGTERM);
    EXPECT_TRUE(WaitForError(agent, waiting));
    agent.Process().Signal(SIGTERM);
    EXPECT_TRUE(WaitForError(agent, waiting, 2));
    EXPECT_TRUE(WaitForError(agent, "; one more signal ends the process\n"));
    agent.Process().Signal(SIGTERM);

    EXPECT_EQ(agent.Process().Wait(), kBrokenOff);
    close(hold);
}

// ---- Standard output ----

TEST(AgentOutput, HasEachLineThatWasPrintedBeforeTheAgentIsKilled) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    const LineClient client(agent.TextPort());
    const std::string line = "client 127.0.0.1:" + std::to_string(client.Port()) + " connected\n";

    EXPECT_TRUE(WaitFor([&] { return agent.Out().find(line) != std::string::npos; }));
    agent.Process().Signal(SIGKILL);
    EXPECT_EQ(agent.Process().Wait(), -SIGKILL);
}

}  // namespace
