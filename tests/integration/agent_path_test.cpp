// A change on its way from the feed file to the clients of the text server.
#include <poll.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "integration/agenttest.h"
#include "support/agent.h"
#include "support/alarmfeed.h"
#include "support/childprocess.h"
#include "support/lineclient.h"
#include "support/tempdir.h"

namespace test {
namespace {

using std::chrono::milliseconds;

TEST(AgentPath, CarriesEachChangeFromTheFeedToTheSubscriberInTheLocalCharacterSet) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    const auto client = Subscriber(agent);

    root.Append(kFeed,
                "# the first alarm\n"
                "event=raise;id=1001;object=NE-17/slot-3;severity=critical;cause=loss of signal;"
                "time=2024-03-01 05:00:52;text=\xca\xd5\xce\xde\xb9\xe2\n"
                "event=change;id=1001;severity=minor;text=\xd2\xd1\xc5\xc9\xb5\xa5\r\n"
                "event=change;id=1001;severity=minor\n"  // no change at all
                "  event = raise ; id = 1002 ; object = NE-18 ; severity = warning ;\n"
                "event=clear;id=1001\n");

    EXPECT_EQ(client->ReadLine(),
              "RAISED 1 id=1001;object=NE-17/slot-3;severity=critical;cause=loss of signal;"
              "time=2024-03-01 05:00:52;text=\xca\xd5\xce\xde\xb9\xe2;ack.user=\n");
    EXPECT_EQ(client->ReadLine(), "CHANGED 2 id=1001;severity=minor;text=\xd2\xd1\xc5\xc9\xb5\xa5\n");
    EXPECT_EQ(client->ReadLine(), "RAISED 3 id=1002;object=NE-18;severity=warning;cause=;time=;text=;ack.user=\n");
    EXPECT_EQ(client->ReadLine(), "CLEARED 4 id=1001\n");

    client->Send("LIST\nQUIT\n");
    EXPECT_EQ(client->ReadToEnd(),
              "LIST 1 4\n"
              "ALARM id=1002;object=NE-18;severity=warning;cause=;time=;text=;ack.user=\n"
              "END\n"
              "BYE\n");
    EXPECT_EQ(agent.Stop(), 0);
    EXPECT_EQ(agent.Err(), "");
}

TEST(AgentPath, RaisingAnActiveAlarmAgainIsAChangeOfWhatDiffers) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    const auto client = Subscriber(agent);

    root.Append(kFeed, RaiseLine("1") + RaiseLine("1") +
                           "event=raise;id=1;object=NE-1;severity=minor;cause=link down;time=12:00:00;text=trouble\n");

    EXPECT_EQ(client->ReadLine(), RaisedText(1, "1"));
    EXPECT_EQ(client->ReadLine(), "CHANGED 2 id=1;severity=minor\n");
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentPath, AppliesTheWholeSampleFeed) {
    const AgentRoot root;
    std::filesystem::copy(ZO_EXAMPLES_DIR "/data/alarms.gbk", root / kFeed);
    root.SetItem("HeartbeatSeconds", "1");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    EXPECT_TRUE(root.WaitForLog("feed: 487 lines applied, 0 skipped")) << root.Log();
    ChildProcess::Command command;
    command.words = {ZO_ASCII_CLIENT, "--port", std::to_string(agent.TextPort()), "--from", "GBK", "LIST", "QUIT"};
    command.out = root / "client";
    ChildProcess client(command);
    EXPECT_EQ(client.Wait(), 0);
    const std::string list = ReadFile(root / "client");
    EXPECT_EQ(list.rfind("LIST 207 471\nALARM id=1010;", 0), 0U) << list;
    EXPECT_EQ(Count(list, "\nALARM id="), 207U);
    EXPECT_NE(list.find("ALARM id=1300;object=NE-BJ-21/slot-4/port-2;severity=minor;cause=fan failure;"
                        "time=2024-03-01 09:55:08;text=风扇转速异常 (子架 3);ack.user=\nEND\nBYE\n"),
              std::string::npos)
        << list;
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentPath, ASubscriberJoinsARunningStreamWithoutGapOrDuplicate) {
    constexpr int kAlarms = 2000;
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    LineClient client(agent.TextPort());
    for (int i = 1; i <= kAlarms; ++i) {
        root.Append(kFeed, RaiseLine(std::to_string(i)));
        if (i == kAlarms / 2) client.Send("SUBSCRIBE\n");
    }

    int count = -1;
    int sequence = -1;
    ASSERT_EQ(std::sscanf(client.ReadLine().c_str(), "SNAPSHOT %d %d\n", &count, &sequence), 2);
    EXPECT_EQ(count, sequence);
    EXPECT_EQ(Count(client.ReadThrough("END\n"), "ALARM id="), static_cast<std::size_t>(count));
    for (int i = sequence + 1; i <= kAlarms; ++i) ASSERT_EQ(client.ReadLine(), RaisedText(i, std::to_string(i)));
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentPath, AThousandAlarmsASecondReachFourClientsWholeAndInOrder) {
    constexpr int kTicks = 1000;
    constexpr int kAlarmsATick = 10;
    constexpr milliseconds kTick(10);
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    std::vector<std::unique_ptr<LineClient>> clients;
    std::vector<pollfd> handles;
    for (int i = 0; i < 4; ++i) {
        clients.push_back(Subscriber(agent));
        handles.push_back({clients.back()->Handle(), POLLIN, 0});
    }

    const auto begin = std::chrono::steady_clock::now();
    for (int tick = 0; tick < kTicks; ++tick) {
        std::string lines;
        for (int i = 1; i <= kAlarmsATick; ++i) lines += RaiseLine(std::to_string(tick * kAlarmsATick + i));
        root.Append(kFeed, lines);
        const auto next = begin + (tick + 1) * kTick;
        for (auto now = begin; (now = std::chrono::steady_clock::now()) < next;) {
            const auto left = std::chrono::duration_cast<milliseconds>(next - now).count() + 1;
            poll(handles.data(), handles.size(), static_cast<int>(left));
            for (const auto& client : clients) client->Receive(milliseconds(0));
        }
    }
    const auto duration = std::chrono::steady_clock::now() - begin;

    for (const auto& client : clients) {
        for (int i = 1; i <= kTicks * kAlarmsATick; ++i) {
            ASSERT_EQ(client->ReadLine(), RaisedText(i, std::to_string(i)));
        }
    }
    EXPECT_LT(duration, std::chrono::seconds(11));
    EXPECT_EQ(Count(root.Log(), "cut off"), 0U);
    EXPECT_EQ(agent.Stop(), 0);
}

}  // namespace
}  // namespace test
