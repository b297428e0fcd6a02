// The agent's settings, and what it says of those that mean nothing.
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/agent.h"
#include "support/alarmfeed.h"
#include "support/wait.h"

namespace test {
namespace {

// What the agent says of its settings; it runs with them all the same.
std::string ErrorsWithStartFile(const AgentRoot& root) {
    Agent agent(root, {"--for", "0"});
    EXPECT_EQ(agent.Process().Wait(), 0);
    EXPECT_NE(agent.Out().find("zo_agent: ready\n"), std::string::npos);
    return agent.Err();
}

TEST(AgentLife, SettingsThatCannotBeReadAreReportedAndItRunsWithoutThem) {
    const std::string file = "share/conf/corba_start.cfg";
    const auto warning = [&file](const AgentRoot& root, const std::string& error) {
        return "zo_agent: cannot read " + root.Path() + "/" + file + ": " + error + "; nothing is set\n";
    };
    const AgentRoot missing;
    std::filesystem::remove(missing / file);
    EXPECT_EQ(ErrorsWithStartFile(missing), warning(missing, "No such file or directory"));

    const AgentRoot directory;
    std::filesystem::remove(directory / file);
    std::filesystem::create_directory(directory / file);
    EXPECT_EQ(ErrorsWithStartFile(directory), warning(directory, "Is a directory"));
}

TEST(AgentLife, APipeInThePlaceOfTheSettingsIsReported) {
    const AgentRoot root;
    const std::string file = root / "share/conf/corba_start.cfg";
    std::filesystem::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    Agent agent(root);
    EXPECT_TRUE(WaitFor([&] {
        return agent.Err() == "zo_agent: cannot read " + file + ": Not a regular file; nothing is set\n";
    })) << agent.Err();
}

TEST(AgentLife, KeysAndLinesOfTheSettingsThatMeanNothingAreReported) {
    const AgentRoot root;
    const std::string file = "share/conf/corba_start.cfg";
    root.Write(file, "AsciiPort=0\n AsciiPorts = 7 \n\n# a comment\nacl\n=5\nasciiport=1\n");
    const std::string path = "zo_agent: " + root.Path() + "/" + file;
    EXPECT_EQ(ErrorsWithStartFile(root),
              path + ":2: unknown key 'AsciiPorts'\n" + path + ":5: not key=value; line skipped\n" + path +
                  ":6: not key=value; line skipped\n" + path + ":7: unknown key 'asciiport'\n");
}

TEST(AgentLife, TheSettingsOfTheExampleAreAllKnown) {
    const AgentRoot root;
    EXPECT_EQ(ErrorsWithStartFile(root), "");
}

TEST(AgentLife, ASettingThatIsNoDecimalNumberIsReportedAndReplacedByTheStandard) {
    struct Setting {
        const char* item;
        const char* value;
        const char* report;
    };
    const Setting settings[] = {
        {"HeartbeatSeconds", "soon", " is not a decimal number from 1 to 3600, taking 5\n"},
        {"AsciiMaxClients", "010", " is not a decimal number from 1 to 512, taking 32\n"},
        {"FeedPollMilliseconds", "0x10", " is not a decimal number from 1 to 60000, taking 100\n"},
        {"AsciiBacklog", "4294968320", " is not a decimal number from 1024 to 268435456, taking 1048576\n"},
    };
    const AgentRoot root;
    for (const Setting& setting : settings) root.SetItem(setting.item, setting.value);
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    const std::string log = root.Log();
    for (const Setting& setting : settings) {
        const std::string line = std::string("corba_start.cfg: ") + setting.item + "=" + setting.value;
        EXPECT_EQ(Count(log, line + setting.report), 1U) << line;
    }
    EXPECT_EQ(Count(log, "a heartbeat every 5 seconds\n"), 1U);
}

}  // namespace
}  // namespace test
