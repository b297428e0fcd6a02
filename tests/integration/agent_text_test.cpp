// The agent's text server and the ways of its clients.
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "integration/agenttest.h"
#include "support/agent.h"
#include "support/alarmfeed.h"
#include "support/lineclient.h"
#include "support/wait.h"

namespace test {
namespace {

using std::chrono::milliseconds;

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

}  // namespace
}  // namespace test
