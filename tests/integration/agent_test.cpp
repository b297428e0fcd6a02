// The agent as its users see it: a process with configuration files, a feed file and
// clients on the network.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/agent.h"
#include "support/alarmfeed.h"
#include "support/childprocess.h"
#include "support/lineclient.h"
#include "support/tempdir.h"
#include "support/wait.h"

namespace {

using std::chrono::milliseconds;
using test::Agent;
using test::AgentRoot;
using test::ChildProcess;
using test::Count;
using test::kFeed;
using test::LineClient;
using test::RaiseLine;
using test::WaitFor;

std::string RaisedText(int sequence, const std::string& id) {
    return "RAISED " + std::to_string(sequence) + " id=" + id + ";object=NE-" + id +
           ";severity=major;cause=link down;time=12:00:00;text=trouble;ack.user=\n";
}

// A client that has the snapshot of an empty table.
std::unique_ptr<LineClient> Subscriber(const Agent& agent, const LineClient::Settings& settings = {}) {
    auto client = std::make_unique<LineClient>(agent.TextPort(), settings);
    client->Send("SUBSCRIBE\n");
    EXPECT_EQ(client->ReadThrough("END\n"), "SNAPSHOT 0 0\nEND\n");
    return client;
}

// ---- From the feed to the client ----

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
    const std::string list = test::ReadFile(root / "client");
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

// ---- The feed file ----

TEST(AgentFeed, ReportsEachMalformedLineOnceAndSkipsIt) {
    const AgentRoot root;
    const std::string nul(1, '\0');
    root.Write(kFeed,
               "event=raise;id=1;object=A;severity=major\n"
               "garbage\n"
               "event=raise;id=2;object=A;severity=awful\n"
               "event=raise;id=2;severity=major\n"
               "event=raise;id=2;object=A\n"
               "event=change;id=77;severity=minor\n"
               "event=dance;id=1\n"
               "event=raise;id=2;object=A;severity=major;colour=red\n"
               "event=raise;id=2;id=3;object=A;severity=major\n"
               "# a comment\n"
               "\n" +
                   std::string(5000, 'x') +
                   "\n"
                   "event=clear;id=1;text=bye\n"
                   "event=change;id=1;text=\xb9\n"
                   "event=change;id=1;text=a\x01z\n"
                   "event=change;id=1\n"
                   "severity=major;id=2;object=A\n"
                   "event=raise;id=;object=A;severity=major\n"
                   "event=change;id=1;ack.user=me\n"
                   "event=raise;id=2;object=;severity=major\n"
                   "event=raise;id=2;object=A;severity=major" +
                   nul +
                   "\n"
                   "event=raise;id=2;object=A;severity=major;text=a" +
                   nul +
                   "z\n"
                   "event=clear;id=1\n");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    const std::string file = root.Path() + "/" + kFeed;
    ASSERT_TRUE(root.WaitForLog(file + ":22:"));

    LineClient client(agent.TextPort());
    client.Send("LIST\n");
    EXPECT_EQ(client.ReadThrough("END\n"), "LIST 0 2\nEND\n");
    EXPECT_EQ(agent.Stop(), 0);
    const std::string log = root.Log();
    for (const char* const report : {
             ":2: 'garbage' is not key=value; line skipped\n",
             ":3: unknown severity 'awful'; line skipped\n",
             ":4: 'object' is missing; line skipped\n",
             ":5: 'severity' is missing; line skipped\n",
             ":6: no alarm '77' is active; line skipped\n",
             ":7: unknown event 'dance'; line skipped\n",
             ":8: unknown key 'colour'; line skipped\n",
             ":9: 'id' stands there twice; line skipped\n",
             ":12: more than 4096 bytes; line skipped\n",
             ":13: a clear has an id only; line skipped\n",
             ":14: not in the local character set; line skipped\n",
             ":15: a control character; line skipped\n",
             ":16: nothing to change; line skipped\n",
             ":17: 'event' is missing; line skipped\n",
             ":18: 'id' is missing; line skipped\n",
             ":19: unknown key 'ack.user'; line skipped\n",
             ":20: 'object' is missing; line skipped\n",
             ":21: a control character; line skipped\n",
             ":22: a control character; line skipped\n",
         }) {
        EXPECT_EQ(Count(log, file + report), 1U) << report;
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

// ---- The text server ----

TEST(AgentText, TakesCommandsInAnyCaseWithEitherLineEndAndAnswersWhatItDoesNotKnow) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    LineClient client(agent.TextPort());

    client.Send("list\r\n\r\n\nFOO bar\nLi");
    EXPECT_EQ(client.ReadLine(), "LIST 0 0\n");
    EXPECT_EQ(client.ReadLine(), "END\n");
    EXPECT_EQ(client.ReadLine(), "ERROR unknown command\n");
    client.Send("St\n");
    EXPECT_EQ(client.ReadThrough("END\n"), "LIST 0 0\nEND\n");
    client.Send(std::string(256, 'x') + "\n");
    EXPECT_EQ(client.ReadLine(), "ERROR unknown command\n");
    client.Send(std::string(257, 'x') + "\nlist\n");
    EXPECT_EQ(client.ReadLine(), "ERROR line too long\n");
    EXPECT_EQ(client.ReadThrough("END\n"), "LIST 0 0\nEND\n");
    client.Send(std::string(100000, 'x'));
    EXPECT_EQ(client.ReadLine(), "ERROR line too long\n");
    client.Send("\nquit\n");
    EXPECT_EQ(client.ReadToEnd(), "BYE\n");
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentText, AnswersAClientThatHasEndedItsSideOfTheConnection) {
    const AgentRoot root;
    std::string feed;
    for (int i = 1; i <= 5000; ++i) feed += RaiseLine(std::to_string(i));
    root.Write(kFeed, feed);
    root.SetItem("HeartbeatSeconds", "1");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    ASSERT_TRUE(root.WaitForLog("feed: 5000 lines applied"));

    LineClient::Settings settings;
    settings.receiveBuffer = 4096;  // so that the answer does not go out at once
    LineClient client(agent.TextPort(), settings);
    client.Send("LIST\nLIST\n");
    client.HalfClose();

    const std::string answers = client.ReadToEnd();
    EXPECT_FALSE(client.IsOpen());
    const std::string answer = answers.substr(0, answers.size() / 2);
    EXPECT_EQ(answer.rfind("LIST 5000 5000\nALARM id=1;object=NE-1;severity=major;", 0), 0U);
    EXPECT_EQ(Count(answer, "\nALARM id="), 5000U);
    EXPECT_EQ(Count(answer, "END\n"), 1U);
    EXPECT_EQ(answers, answer + answer);
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentText, ASubscriberThatEndsItsSideOfTheConnectionIsDropped) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    const auto client = Subscriber(agent);
    client->HalfClose();
    EXPECT_EQ(client->ReadToEnd(), "");
    EXPECT_FALSE(client->IsOpen());
}

TEST(AgentText, CutsOffAClientThatDoesNotReadAndServesTheOthers) {
    constexpr int kBatches = 60;
    constexpr int kAlarmsABatch = 200;
    const AgentRoot root;
    root.SetItem("AsciiBacklog", "65536");
    root.SetItem("FeedPollMilliseconds", "10");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    LineClient::Settings settings;
    settings.receiveBuffer = 4096;
    const auto slow = Subscriber(agent, settings);
    const auto quick = Subscriber(agent);

    std::string expected;
    for (int batch = 0; batch < kBatches; ++batch) {
        std::string lines;
        for (int i = 1; i <= kAlarmsABatch; ++i) lines += RaiseLine(std::to_string(batch * kAlarmsABatch + i));
        root.Append(kFeed, lines);
        for (int i = 1; i <= kAlarmsABatch; ++i) {
            const int number = batch * kAlarmsABatch + i;
            expected += RaisedText(number, std::to_string(number));
            ASSERT_EQ(quick->ReadLine(), RaisedText(number, std::to_string(number)));
        }
    }

    const std::string received = slow->ReadToEnd();
    EXPECT_FALSE(slow->IsOpen());
    EXPECT_LT(received.size(), expected.size());
    EXPECT_EQ(expected.compare(0, received.size(), received), 0);
    const std::string report =
        "client 127.0.0.1:" + std::to_string(slow->Port()) + " cut off, more than 65536 bytes wait for it\n";
    EXPECT_EQ(Count(root.Log(), report), 1U) << root.Log();
    EXPECT_EQ(Count(root.Log(), "cut off"), 1U);
    EXPECT_TRUE(quick->IsOpen());
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentText, RefusesAddressesThatAreInNoAclItem) {
    const AgentRoot root;
    root.SetItem("acl", "127.0.0.1, 127.0.0.3");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    LineClient::Settings settings;
    settings.from = "127.0.0.2";
    LineClient stranger(agent.TextPort(), settings);
    stranger.Send("LIST\n");
    EXPECT_EQ(stranger.ReadToEnd(), "");
    EXPECT_FALSE(stranger.IsOpen());
    for (const char* const address : {"127.0.0.1", "127.0.0.3"}) {
        settings.from = address;
        LineClient friendly(agent.TextPort(), settings);
        friendly.Send("LIST\n");
        EXPECT_EQ(friendly.ReadThrough("END\n"), "LIST 0 0\nEND\n");
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

    LineClient::Settings settings;
    settings.from = "127.0.0.2";
    LineClient stranger(agent.TextPort(), settings);
    EXPECT_EQ(stranger.ReadToEnd(), "");
    EXPECT_FALSE(stranger.IsOpen());
    LineClient local(agent.TextPort());
    local.Send("LIST\n");
    EXPECT_EQ(local.ReadThrough("END\n"), "LIST 0 0\nEND\n");
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentText, SkipsAclEntriesThatAreNoAddressesAndReportsEachOnce) {
    const AgentRoot root;
    root.SetItem("acl", "*, 127.0.0.3, localhost, ::1, 127.0.0.0/8, 127.0.0.01, *");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    LineClient stranger(agent.TextPort());
    EXPECT_EQ(stranger.ReadToEnd(), "");
    LineClient::Settings settings;
    settings.from = "127.0.0.3";
    LineClient friendly(agent.TextPort(), settings);
    friendly.Send("LIST\n");
    EXPECT_EQ(friendly.ReadThrough("END\n"), "LIST 0 0\nEND\n");
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

// What a client at that address gets as an answer to LIST.
std::string ListFor(const Agent& agent, const std::string& address) {
    LineClient::Settings settings;
    settings.from = address;
    LineClient client(agent.TextPort(), settings);
    client.Send("LIST\n");
    return client.ReadThrough("END\n");
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

TEST(AgentText, ServesNoMoreClientsThanConfigured) {
    const AgentRoot root;
    root.SetItem("AsciiMaxClients", "2");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    auto first = Subscriber(agent);
    const auto second = Subscriber(agent);
    LineClient third(agent.TextPort());
    EXPECT_EQ(third.ReadToEnd(), "ERROR too many clients\n");
    first.reset();
    ASSERT_TRUE(root.WaitForLog(" disconnected\n"));
    const auto fourth = Subscriber(agent);
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentText, KeepsClientsThatComeAllAtOnceUntilItIsTheirTurn) {
    constexpr std::size_t kClients = 120;  // systems that allow a queue of 128 only are still in use
    const AgentRoot root;
    root.SetItem("AsciiMaxClients", std::to_string(kClients));
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    // While the agent stands still the system alone takes them in.
    ASSERT_TRUE(agent.Process().Freeze());
    LineClient::Settings settings;
    settings.connectSeconds = 1;
    std::vector<std::unique_ptr<LineClient>> clients;
    while (clients.size() < kClients) {
        clients.push_back(std::make_unique<LineClient>(agent.TextPort(), settings));
        ASSERT_TRUE(clients.back()->IsOpen()) << "client " << clients.size();
        clients.back()->Send("LIST\n");
    }
    agent.Process().Signal(SIGCONT);
    for (const auto& client : clients) ASSERT_EQ(client->ReadThrough("END\n"), "LIST 0 0\nEND\n");
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentText, TakesTurnsWithAClientThatSendsManyCommandsAtOnce) {
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    const auto client = [&agent] {
        auto made = std::make_unique<LineClient>(agent.TextPort());
        made->Send("LIST\n");
        EXPECT_EQ(made->ReadThrough("END\n"), "LIST 0 0\nEND\n");
        return made;
    };
    const auto disconnected = [](const LineClient& gone) {
        return "client 127.0.0.1:" + std::to_string(gone.Port()) + " disconnected\n";
    };
    const auto busy = client();
    const auto other = client();

    // The agent finds the commands of both at the same time. The one that connected
    // first has the first turn.
    ASSERT_TRUE(agent.Process().Freeze());
    std::string commands;
    std::string answers;
    for (int i = 0; i < 150; ++i) {
        commands += "LIST\n";
        answers += "LIST 0 0\nEND\n";
    }
    busy->Send(commands + "QUIT\n");
    other->Send("QUIT\n");
    agent.Process().Signal(SIGCONT);

    EXPECT_EQ(other->ReadToEnd(), "BYE\n");
    EXPECT_EQ(busy->ReadToEnd(), answers + "BYE\n");
    ASSERT_TRUE(root.WaitForLog(disconnected(*busy)));
    const std::string log = root.Log();
    EXPECT_LT(log.find(disconnected(*other)), log.find(disconnected(*busy))) << log;
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentText, GoesOnAcceptingWhenFileDescriptorsAreFreeAgain) {
    if (std::string(ZO_SANITIZE).find("undefined") != std::string::npos) {
        GTEST_SKIP() << "this sanitizer checks types with the help of a pipe, for which there is no descriptor";
    }
    const AgentRoot root;
    root.SetItem("AsciiMaxClients", "500");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    ASSERT_TRUE(agent.Process().LimitDescriptors(32));

    // One after the other until one has to wait.
    const std::string report = "no client can be accepted now: Too many open files\n";
    std::vector<std::unique_ptr<LineClient>> clients;
    bool accepted = true;
    while (accepted && clients.size() < 32) {
        clients.push_back(std::make_unique<LineClient>(agent.TextPort()));
        clients.back()->Send("LIST\n");
        ASSERT_TRUE(WaitFor([&] {
            clients.back()->Receive(milliseconds(1));
            std::string line;
            accepted = clients.back()->TakeLine(line);
            return accepted || root.Log().find(report) != std::string::npos;
        }));
    }
    ASSERT_FALSE(accepted);
    clients.erase(clients.begin());

    EXPECT_EQ(clients.back()->ReadThrough("END\n"), "LIST 0 0\nEND\n");
    EXPECT_EQ(agent.Stop(), 0);
}

// ---- The file with the port ----

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

    EXPECT_EQ(test::ReadFile(target), "precious\n");
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
    EXPECT_EQ(test::ReadFile(root / "var/ascii.port"), std::to_string(agent.TextPort()) + "\n");
    client.Send("LIST\n");
    EXPECT_EQ(client.ReadThrough("END\n"), "LIST 0 0\nEND\n");
    EXPECT_EQ(agent.Stop(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(root / "var"));
}

// ---- Beginning and end ----

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

TEST(AgentLife, ASettingThatIsNoDecimalNumberIsReportedAndReplacedByTheStandard) {
    const AgentRoot root;
    root.SetItem("HeartbeatSeconds", "soon");
    root.SetItem("AsciiMaxClients", "010");
    root.SetItem("FeedPollMilliseconds", "0x10");
    root.SetItem("AsciiBacklog", "4294968320");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    const std::string log = root.Log();
    for (const char* const report : {
             "HeartbeatSeconds=soon is not a decimal number from 1 to 3600, taking 5\n",
             "AsciiMaxClients=010 is not a decimal number from 1 to 512, taking 32\n",
             "FeedPollMilliseconds=0x10 is not a decimal number from 1 to 60000, taking 100\n",
             "AsciiBacklog=4294968320 is not a decimal number from 1024 to 268435456, taking 1048576\n",
         }) {
        EXPECT_EQ(Count(log, std::string("corba_start.cfg: ") + report), 1U) << report;
    }
    EXPECT_EQ(Count(log, "a heartbeat every 5 seconds\n"), 1U);
}

// ---- The command line ----

struct Answer {
    int status;
    std::string out;
    std::string err;
};

Answer RunProgram(const char* program, const std::vector<std::string>& arguments) {
    const test::TempDir dir;
    ChildProcess::Command command;
    command.words = arguments;
    command.words.insert(command.words.begin(), program);
    command.unset = {"_APP_SHARE_DIR", "_APP_LOG_DIR", "APP_ROOT", "KORU_SERVER_PATH"};
    command.out = dir / "out";
    command.err = dir / "err";
    ChildProcess process(command);
    const int status = process.Wait();
    return {status, test::ReadFile(dir / "out"), test::ReadFile(dir / "err")};
}

Answer RunAgent(const std::vector<std::string>& arguments) {
    return RunProgram(ZO_AGENT, arguments);
}

TEST(AgentOptions, HelpAndVersionGoToStandardOutput) {
    const Answer help = RunAgent({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("usage: zo_agent [--root DIR] [--conf NAME] [--for SECONDS]\n", 0), 0U);
    EXPECT_EQ(help.err, "");
    const Answer version = RunAgent({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "zo_agent 1.0.0\n");
}

TEST(AgentOptions, TheHelpOfTheClientGoesToStandardOutput) {
    const Answer help = RunProgram(ZO_ASCII_CLIENT, {"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("usage: zo_ascii_client (--port N | --port-file FILE) ", 0), 0U) << help.out;
    EXPECT_EQ(help.err, "");
    const Answer wrong = RunProgram(ZO_ASCII_CLIENT, {"LIST"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_EQ(wrong.out, "");
    EXPECT_EQ(wrong.err, help.out);
}

TEST(AgentOptions, AWrongCommandLineIsExplainedWithStatusTwo) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--frobnicate"}, "zo_agent: unknown option '--frobnicate'\n"},
        {{"--for", "a while"},
         "zo_agent: --for needs a decimal number of seconds, 2147483647 at most, not 'a while'\n"},
        {{"--for", "-1"}, "zo_agent: --for needs a decimal number of seconds, 2147483647 at most, not '-1'\n"},
        {{"--for", "010"}, "zo_agent: --for needs a decimal number of seconds, 2147483647 at most, not '010'\n"},
        {{"--for", "0x10"}, "zo_agent: --for needs a decimal number of seconds, 2147483647 at most, not '0x10'\n"},
        {{"--for", "99999999999"},
         "zo_agent: --for needs a decimal number of seconds, 2147483647 at most, not '99999999999'\n"},
        {{"--for"}, "zo_agent: --for needs a decimal number of seconds, 2147483647 at most, not ''\n"},
        {{"--root"}, "zo_agent: --root needs a value, not ''\n"},
    };
    for (const auto& wrong : cases) {
        const Answer answer = RunAgent(wrong.first);
        EXPECT_EQ(answer.status, 2);
        EXPECT_EQ(answer.out, "");
        EXPECT_EQ(answer.err.rfind(wrong.second + "usage: zo_agent ", 0), 0U) << answer.err;
    }
    const Answer answer = RunAgent({"--root", "/nowhere/at/all"});
    EXPECT_EQ(answer.status, 2);
    EXPECT_EQ(answer.err, "zo_agent: --root: there is no directory /nowhere/at/all\n");
}

TEST(AgentOptions, WithNothingToHostItSaysSo) {
    const Answer rootless = RunAgent({});
    EXPECT_EQ(rootless.status, 1);
    EXPECT_EQ(rootless.err, "zo_agent: no installation root, give --root or set KORU_SERVER_PATH\n");
    const test::TempDir empty;
    const Answer answer = RunAgent({"--root", empty.Path(), "--conf", "other"});
    EXPECT_EQ(answer.status, 1);
    EXPECT_EQ(answer.err, "zo_agent: cannot enter " + empty.Path() + "/nbi: No such file or directory\n");
    std::filesystem::create_directory(empty / "nbi");
    const std::string file = empty.Path() + "/nbi/../etc/oss_cfg/nbi/other/bundlemgr.cfg";
    const Answer unconfigured = RunAgent({"--root", empty.Path(), "--conf", "other"});
    EXPECT_EQ(unconfigured.status, 1);
    EXPECT_EQ(unconfigured.err, "zo_agent: cannot read " + file + ": No such file or directory\n");
    empty.Write("etc/oss_cfg/nbi/other/bundlemgr.cfg", "# none\n");
    const Answer bundleless = RunAgent({"--root", empty.Path(), "--conf", "other"});
    EXPECT_EQ(bundleless.status, 1);
    EXPECT_EQ(bundleless.err, "zo_agent: no bundle is named in " + file + "\n");
}

}  // namespace
