// The file in which the agent tells the port of its text server.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/agent.h"
#include "support/alarmfeed.h"
#include "support/lineclient.h"
#include "support/tempdir.h"

namespace test {
namespace {

TEST(AgentPortFile, AnAgentLeavesTheFileOfAnotherOne) {
    const AgentRoot root;
    Agent first(root);
    ASSERT_TRUE(first.WaitUntilReady());
    std::filesystem::remove(root / "out");
    Agent second(root);
    ASSERT_TRUE(second.WaitUntilReady());
    const int port = second.TextPort();

    EXPECT_EQ(first.Stop(), 0);
    EXPECT_EQ(second.TextPort(), port);
    EXPECT_NE(port, 0);
}

TEST(AgentPortFile, OneThatCannotBeWrittenIsReportedAndNotLeftEmpty) {
    const AgentRoot root;
    std::filesystem::create_symlink("/dev/full", root / "var/ascii.port.new");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    EXPECT_EQ(Count(root.Log(), "/var/ascii.port cannot be written\n"), 1U) << root.Log();
    EXPECT_TRUE(std::filesystem::is_empty(root / "var"));
}

TEST(AgentPortFile, NeitherALinkNorAPipeInItsPlaceIsWrittenTo) {
    const AgentRoot linked;
    const std::string target = linked.Write("elsewhere", "precious\n");
    std::filesystem::create_symlink(target, linked / "var/ascii.port.new");
    const AgentRoot piped;
    ASSERT_EQ(mkfifo((piped / "var/ascii.port.new").c_str(), 0600), 0);
    const int reader = open((piped / "var/ascii.port.new").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);

    for (const AgentRoot* const root : {&linked, &piped}) {
        Agent agent(*root);
        ASSERT_TRUE(agent.WaitUntilReady());
        EXPECT_EQ(Count(root->Log(), "/var/ascii.port cannot be written\n"), 1U) << root->Log();
        EXPECT_EQ(agent.Stop(), 0);
    }

    EXPECT_EQ(ReadFile(target), "precious\n");
    char byte = 0;
    EXPECT_EQ(read(reader, &byte, 1), 0);
    close(reader);
}

TEST(AgentPortFile, APipeWithoutAReaderInItsPlaceHoldsNobodyUp) {
    const AgentRoot root;
    ASSERT_EQ(mkfifo((root / "var/ascii.port.new").c_str(), 0600), 0);
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    EXPECT_EQ(Count(root.Log(), "/var/ascii.port cannot be written\n"), 1U) << root.Log();
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentPortFile, APipeThatTakesThePlaceOfTheFileIsLeftAtTheEnd) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    std::filesystem::remove(root / "var/ascii.port");
    ASSERT_EQ(mkfifo((root / "var/ascii.port").c_str(), 0600), 0);

    EXPECT_EQ(agent.Stop(), 0);
    EXPECT_TRUE(std::filesystem::is_fifo(root / "var/ascii.port"));
}

TEST(AgentPortFile, WhatAKilledAgentLeftIsReplaced) {
    const AgentRoot root;
    root.Write("var/ascii.port", "1\n");
    root.Write("var/ascii.port.new", "a longer text than a port\n");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    LineClient client(agent.TextPort());
    EXPECT_EQ(ReadFile(root / "var/ascii.port"), std::to_string(agent.TextPort()) + "\n");
    client.Send("LIST\n");
    EXPECT_EQ(client.ReadThrough("END\n"), "LIST 0 0\nEND\n");
    EXPECT_EQ(agent.Stop(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(root / "var"));
}

}  // namespace
}  // namespace test
