// The agent's beginning and end, and what it says when it cannot begin.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "integration/agenttest.h"
#include "support/agent.h"
#include "support/alarmfeed.h"
#include "support/lineclient.h"
#include "support/wait.h"

namespace test {
namespace {

TEST(AgentLife, StopsInOrderWhileClientsAreConnected) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    const auto subscriber = Subscriber(agent);
    LineClient idle(agent.TextPort());
    std::string lines;
    for (int i = 1; i <= 1000; ++i) lines += RaiseLine(std::to_string(i));
    root.Append(kFeed, lines);
    ASSERT_EQ(subscriber->ReadLine(), RaisedText(1, "1"));

    EXPECT_EQ(agent.Stop(), 0);
    subscriber->ReadToEnd();
    EXPECT_FALSE(subscriber->IsOpen());
    EXPECT_EQ(idle.ReadToEnd(), "");
    EXPECT_FALSE(idle.IsOpen());
    EXPECT_FALSE(std::filesystem::exists(root / "var/ascii.port"));
    EXPECT_EQ(agent.Err(), "");
    const std::string log = root.Log();
    std::size_t at = 0;
    for (const char* const record : {
             "========== Init Bundle --- [ zo_base_bundle ] ==========",
             "===== Service Ready -[ AlarmSvc ] =====",
             "===== Service Ready -[ HeartbeatSvc ] =====",
             "========== Init Bundle --- [ zo_domain_bundle ] ==========",
             "===== Service Ready -[ FeedSvc ] =====",
             "===== Service Ready -[ StatisticsSvc ] =====",
             "========== Init Bundle --- [ zo_ascii_bundle ] ==========",
             "===== Service Ready -[ AsciiSvc ] =====",
             "========== Fini Bundle --- zo_ascii_bundle ==========",
             "===== Start to Finalize -[ AsciiSvc ] =====",
             "========== Fini Bundle --- zo_domain_bundle ==========",
             "===== Start to Finalize -[ StatisticsSvc ] =====",
             "===== Start to Finalize -[ FeedSvc ] =====",
             "========== Fini Bundle --- zo_base_bundle ==========",
             "===== Start to Finalize -[ HeartbeatSvc ] =====",
             "===== Start to Finalize -[ AlarmSvc ] =====",
         }) {
        at = log.find(record, at);
        ASSERT_NE(at, std::string::npos) << record << "\n" << log;
    }
}

TEST(AgentLife, StopsInTheMiddleOfALongFeed) {
    const AgentRoot root;
    std::string feed;
    for (int i = 1; i <= 50000; ++i) feed += RaiseLine(std::to_string(i));
    root.Write(kFeed, feed);
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    EXPECT_EQ(agent.Stop(SIGINT), 0);
    EXPECT_EQ(agent.Err(), "");
}

TEST(AgentLife, StopsByItselfAfterTheTimeThatItWasGiven) {
    const AgentRoot root;
    const auto begin = std::chrono::steady_clock::now();
    Agent agent(root, {"--for", "1", "--conf", "conf"});
    EXPECT_EQ(agent.Process().Wait(), 0);
    // One second, and the manager's pause of five.
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(6));
    EXPECT_NE(agent.Out().find("zo_agent: ready\n"), std::string::npos);
}

TEST(AgentLife, ASignalDuringStartUpEndsItInOrderAfterTheCurrentStep) {
    const AgentRoot root;
    root.SetBundles({"zo_base_bundle", "zo_domain_bundle", "zo_hold_bundle", "zo_ascii_bundle"});
    root.Write("etc/oss_cfg/nbi/conf/zo_hold_bundle/svc.cfg", "# none\n");
    ASSERT_EQ(mkfifo((root / "var/hold").c_str(), 0600), 0);
    Agent agent(root, {}, {{"LD_LIBRARY_PATH", ZO_FIXTURES_DIR}});
    int hold = -1;
    // Succeeds when the bundle has opened the pipe, in the midst of InitAllBundles.
    ASSERT_TRUE(WaitFor([&] { return (hold = open((root / "var/hold").c_str(), O_WRONLY | O_NONBLOCK)) != -1; }))
        << agent.Err();
    agent.Process().Signal(SIGTERM);
    close(hold);

    EXPECT_EQ(agent.Process().Wait(), 0);
    EXPECT_EQ(agent.Out().find("zo_agent: ready\n"), std::string::npos);
    EXPECT_EQ(agent.Err(), "");
    const std::string log = root.Log();
    EXPECT_NE(log.find("========== Fini Bundle --- zo_hold_bundle =========="), std::string::npos);
    EXPECT_NE(log.find("===== Start to Finalize -[ AlarmSvc ] ====="), std::string::npos);
}

TEST(AgentLife, ABundleThatCannotBeLoadedIsNamedAndTheOthersAreEndedInOrder) {
    const AgentRoot root;
    root.SetBundles({"zo_base_bundle", "zo_absent_bundle", "zo_ascii_bundle", "zo_other_bundle"});
    Agent agent(root);
    EXPECT_EQ(agent.Process().Wait(), 1);
    EXPECT_EQ(agent.Err(), "zo_agent: cannot load zo_absent_bundle, zo_other_bundle, see the log in " + root.Path() +
                               "/log/Develop/nbi/Agent_CORBA\n");
    EXPECT_NE(root.Log().find("Load library libzo_absent_bundle.so failed."), std::string::npos);
    EXPECT_NE(root.Log().find("========== Fini Bundle --- zo_base_bundle =========="), std::string::npos);
}

TEST(AgentLife, AServiceThatCannotBeInitialisedIsNamedWithItsBundle) {
    const AgentRoot root;
    root.Write("etc/oss_cfg/nbi/conf/zo_domain_bundle/svc.cfg",
               "service=zo_domain_bundle:FeedSvc\nservice=zo_domain_bundle:AbsentSvc\n");
    Agent agent(root);
    EXPECT_EQ(agent.Process().Wait(), 1);
    EXPECT_EQ(agent.Err(),
              "zo_agent: cannot initialise zo_domain_bundle (service AbsentSvc), result 1, see the log in " +
                  root.Path() + "/log/Develop/nbi/Agent_CORBA\n");
    EXPECT_NE(root.Log().find("===== Start to Finalize -[ FeedSvc ] ====="), std::string::npos);
}

TEST(AgentLife, ABundleWhoseServicesCannotBeReadRunsWithoutThem) {
    const std::string file = "etc/oss_cfg/nbi/conf/zo_domain_bundle/svc.cfg";
    const auto warning = [&file](const AgentRoot& root, const std::string& error) {
        return "zo_agent: cannot read " + root.Path() + "/nbi/../" + file + ": " + error +
               "; zo_domain_bundle has no services\n";
    };
    const AgentRoot missing;
    std::filesystem::remove(missing / file);
    const AgentRoot unreadable;
    std::filesystem::remove(unreadable / file);
    std::filesystem::create_directory(unreadable / file);

    const AgentRoot pipe;
    std::filesystem::remove(pipe / file);
    ASSERT_EQ(mkfifo((pipe / file).c_str(), 0600), 0);

    Agent first(missing, {"--for", "0"});
    Agent second(unreadable, {"--for", "0"});
    Agent third(pipe, {"--for", "0"});
    EXPECT_EQ(first.Process().Wait(), 0);
    EXPECT_EQ(second.Process().Wait(), 0);
    EXPECT_EQ(third.Process().Wait(), 0);

    EXPECT_EQ(first.Err(), warning(missing, "No such file or directory"));
    EXPECT_EQ(second.Err(), warning(unreadable, "Is a directory"));
    EXPECT_EQ(third.Err(), warning(pipe, "Not a regular file"));
    EXPECT_NE(first.Out().find("zo_agent: ready\n"), std::string::npos);
}

TEST(AgentLife, WithoutALogItRunsButSaysSo) {
    for (const bool inTheWay : {false, true}) {
        const AgentRoot root;
        std::filesystem::remove(root / "log");
        if (inTheWay) root.Write("log", "a file\n");
        Agent agent(root);
        ASSERT_TRUE(agent.WaitUntilReady());
        const auto client = Subscriber(agent);
        EXPECT_EQ(agent.Err(), "zo_agent: cannot log in " + root.Path() + "/log/Develop/nbi/Agent_CORBA: " +
                                   (inTheWay ? "Not a directory\n" : "No such file or directory\n"));
    }
}

TEST(AgentLife, StandardStreamsThatAreClosedGoToNoFileAndNoClient) {
    const AgentRoot root;
    Agent agent(root, {}, {}, {"/bin/sh", "-c", "exec \"$0\" \"$@\" <&- >&- 2>&-"});
    ASSERT_TRUE(WaitFor([&agent] { return agent.TextPort() != 0; }));
    const auto client = Subscriber(agent);
    for (const char* const stream : {"0", "1", "2"}) {
        const std::string link = "/proc/" + std::to_string(agent.Process().Pid()) + "/fd/" + stream;
        EXPECT_EQ(std::filesystem::read_symlink(link), "/dev/null") << stream;
    }
}

TEST(AgentLife, AServiceWhoseProviderIsMissingSaysSo) {
    const AgentRoot root;
    root.SetBundles({"zo_domain_bundle"});
    Agent agent(root);
    EXPECT_EQ(agent.Process().Wait(), 1);
    EXPECT_NE(agent.Err().find("cannot initialise zo_domain_bundle (service FeedSvc)"), std::string::npos);
    EXPECT_EQ(Count(root.Log(), "AlarmSvc is not there; is zo_base_bundle in bundlemgr.cfg?\n"), 1U);
}

TEST(AgentLife, APortThatIsTakenIsReported) {
    const AgentRoot first;
    Agent holder(first);
    ASSERT_TRUE(holder.WaitUntilReady());
    const AgentRoot second;
    second.SetItem("AsciiPort", std::to_string(holder.TextPort()));
    Agent agent(second);
    EXPECT_EQ(agent.Process().Wait(), 1);
    EXPECT_NE(agent.Err().find("cannot initialise zo_ascii_bundle (service AsciiSvc)"), std::string::npos);
    EXPECT_EQ(Count(second.Log(),
                    "port " + std::to_string(holder.TextPort()) + " cannot be opened: Address already in use\n"),
              1U);
    EXPECT_EQ(holder.Stop(), 0);
}

}  // namespace
}  // namespace test
