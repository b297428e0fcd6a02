// The agent's feed file: what is wrong in it, and how it is followed.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "integration/agenttest.h"
#include "support/agent.h"
#include "support/alarmfeed.h"
#include "support/lineclient.h"

namespace test {
namespace {

/// A line of the feed, and what is said of it; null: it is taken as it is.
struct FeedLine {
    std::string text;
    const char* report;
};

TEST(AgentFeed, ReportsEachMalformedLineOnceAndSkipsIt) {
    const std::string nul(1, '\0');
    const std::vector<FeedLine> lines = {
        {"event=raise;id=1;object=A;severity=major", nullptr},
        {"garbage", "'garbage' is not key=value"},
        {"event=raise;id=2;object=A;severity=awful", "unknown severity 'awful'"},
        {"event=raise;id=2;severity=major", "'object' is missing"},
        {"event=raise;id=2;object=A", "'severity' is missing"},
        {"event=change;id=77;severity=minor", "no alarm '77' is active"},
        {"event=dance;id=1", "unknown event 'dance'"},
        {"event=raise;id=2;object=A;severity=major;colour=red", "unknown key 'colour'"},
        {"event=raise;id=2;id=3;object=A;severity=major", "'id' stands there twice"},
        {"# a comment", nullptr},
        {"", nullptr},
        {std::string(5000, 'x'), "more than 4096 bytes"},
        {"event=clear;id=1;text=bye", "a clear has an id only"},
        {"event=change;id=1;text=\xb9", "not in the local character set"},
        {"event=change;id=1;text=a\x01z", "a control character"},
        {"event=change;id=1", "nothing to change"},
        {"severity=major;id=2;object=A", "'event' is missing"},
        {"event=raise;id=;object=A;severity=major", "'id' is missing"},
        {"event=change;id=1;ack.user=me", "unknown key 'ack.user'"},
        {"event=raise;id=2;object=;severity=major", "'object' is missing"},
        {"event=raise;id=2;object=A;severity=major" + nul, "a control character"},
        {"event=raise;id=2;object=A;severity=major;text=a" + nul + "z", "a control character"},
        {"event=clear;id=1", nullptr},
    };
    std::string feed;
    for (const FeedLine& line : lines) feed += line.text + "\n";
    const AgentRoot root;
    root.Write(kFeed, feed);
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    const std::string file = root.Path() + "/" + kFeed;
    ASSERT_TRUE(root.WaitForLog(file + ":22:"));

    LineClient client(agent.TextPort());
    client.Send("LIST\n");
    EXPECT_EQ(client.ReadThrough("END\n"), "LIST 0 2\nEND\n");
    EXPECT_EQ(agent.Stop(), 0);
    const std::string log = root.Log();
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string where = file + ":" + std::to_string(i + 1) + ": ";
        SCOPED_TRACE(where + lines[i].text);
        EXPECT_EQ(Count(log, where), lines[i].report != nullptr ? 1U : 0U);
        if (lines[i].report == nullptr) continue;
        EXPECT_EQ(Count(log, where + lines[i].report + "; line skipped\n"), 1U);
    }
    EXPECT_EQ(Count(log, "; line skipped\n"), 19U);
}

TEST(AgentFeed, WaitsForTheFileAndForTheEndOfALine) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    ASSERT_TRUE(root.WaitForLog("alarms.feed cannot be read yet: No such file or directory\n"));
    const auto client = Subscriber(agent);

    const std::string line = RaiseLine("1");
    root.Append(kFeed, line.substr(0, 10));
    ASSERT_TRUE(root.WaitForLog("alarms.feed is being followed\n"));
    root.Append(kFeed, line.substr(10) + RaiseLine("2"));

    EXPECT_EQ(client->ReadLine(), RaisedText(1, "1"));
    EXPECT_EQ(client->ReadLine(), RaisedText(2, "2"));
    EXPECT_EQ(agent.Stop(), 0);
    EXPECT_EQ(Count(root.Log(), "cannot be read yet"), 1U);
    EXPECT_EQ(Count(root.Log(), "line skipped"), 0U);
}

TEST(AgentFeed, GoesOnWithTheNewFileWhenTheOldOneIsRotatedAway) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    const auto client = Subscriber(agent);
    root.Append(kFeed, RaiseLine("1"));
    ASSERT_EQ(client->ReadLine(), RaisedText(1, "1"));

    std::filesystem::rename(root / kFeed, root / "var/alarms.feed.1");
    std::string unfinished = RaiseLine("3");
    unfinished.pop_back();
    root.Append("var/alarms.feed.1", RaiseLine("2") + unfinished);
    root.Append(kFeed, RaiseLine("4") + "garbage\n");

    EXPECT_EQ(client->ReadLine(), RaisedText(2, "2"));
    EXPECT_EQ(client->ReadLine(), RaisedText(3, "3"));
    EXPECT_EQ(client->ReadLine(), RaisedText(4, "4"));
    EXPECT_TRUE(root.WaitForLog("alarms.feed:2: 'garbage' is not key=value; line skipped\n"));
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentFeed, BeginsAgainWhenTheFileIsCutBack) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    const auto client = Subscriber(agent);
    root.Append(kFeed, RaiseLine("1") + RaiseLine("2") + "event=raise;id=9;obj");
    ASSERT_EQ(client->ReadLine(), RaisedText(1, "1"));
    ASSERT_EQ(client->ReadLine(), RaisedText(2, "2"));

    std::filesystem::resize_file(root / kFeed, 0);
    root.Append(kFeed, RaiseLine("3") + "garbage\n");

    EXPECT_EQ(client->ReadLine(), RaisedText(3, "3"));
    EXPECT_TRUE(root.WaitForLog("alarms.feed:2: 'garbage' is not key=value; line skipped\n"));
    EXPECT_EQ(Count(root.Log(), "alarms.feed was cut back, reading it from its beginning\n"), 1U);
    EXPECT_EQ(agent.Stop(), 0);
}

}  // namespace
}  // namespace test
