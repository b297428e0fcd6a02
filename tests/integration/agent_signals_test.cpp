// Ending the agent, also when it does not end.
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iterator>
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

namespace test {
namespace {

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

// ---- The log ----

std::size_t LogFiles(const AgentRoot& root) {
    const std::filesystem::directory_iterator files(root / "log/Develop/nbi/Agent_CORBA");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

/// Lets the agent write records, as a client that comes and goes.
void KnockAt(const Agent& agent) {
    LineClient client(agent.TextPort());
    client.Send("QUIT\n");
    EXPECT_EQ(client.ReadToEnd(), "BYE\n");
}

TEST(AgentLog, GoesOnInANewFileAtSighup) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    ASSERT_EQ(LogFiles(root), 1U);
    const int port = agent.TextPort();

    // Within the second of the first file the new one would have its name.
    EXPECT_TRUE(WaitFor([&] {
        agent.Process().Signal(SIGHUP);
        KnockAt(agent);
        return agent.Process().HasEnded() || LogFiles(root) > 1;
    }));

    ASSERT_FALSE(agent.Process().HasEnded());
    EXPECT_EQ(agent.TextPort(), port);
    EXPECT_EQ(agent.Stop(), 0);
    EXPECT_EQ(agent.Err(), "");
    const std::string log = root.Log();
    EXPECT_EQ(Count(log, " connected\n"), Count(log, " disconnected\n"));
    EXPECT_EQ(Count(log, "\n<1>\n") + (log.rfind("<1>\n", 0) == 0 ? 1 : 0), 1U) << log;
}

TEST(AgentLog, SighupDuringAnInitThatHangsIsObeyed) {
    const HeldRoot root(false);
    Agent agent(root, {}, WithHoldBundle());
    const int hold = root.WaitUntilHeld();
    ASSERT_NE(hold, -1) << agent.Err();

    EXPECT_TRUE(WaitFor([&] {
        agent.Process().Signal(SIGHUP);
        return agent.Process().HasEnded() || LogFiles(root) > 1;
    }));

    EXPECT_FALSE(agent.Process().HasEnded());
    close(hold);
    EXPECT_TRUE(agent.WaitUntilReady());
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentLog, WhatItLosesIsToldWhenThatBeginsAndWhenItIsOver) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    EXPECT_EQ(agent.Err(), "");

    // A file in the place of the directory, and no name that the open one could keep.
    std::filesystem::rename(root / "log", root / "old");
    root.Write("log", "in the way\n");
    EXPECT_TRUE(WaitFor([&] {
        agent.Process().Signal(SIGHUP);
        KnockAt(agent);
        return !agent.Err().empty();
    }));
    EXPECT_EQ(agent.Err().rfind("zo_agent: the log loses records since 20", 0), 0U) << agent.Err();

    std::filesystem::remove(root / "log");
    std::filesystem::rename(root / "old", root / "log");
    KnockAt(agent);
    EXPECT_TRUE(WaitForError(agent, "zo_agent: the log is kept again, "));
    EXPECT_EQ(Count(agent.Err(), "\n"), 2U) << agent.Err();
    EXPECT_EQ(agent.Stop(), 0);
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
}  // namespace test
