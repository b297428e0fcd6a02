// The agent's text server when there are many clients, some of them bad ones, and few
// descriptors.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/agent.h"
#include "support/alarmfeed.h"
#include "support/lineclient.h"
#include "support/wait.h"

namespace test {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kMegabyte = 1024 * 1024;

bool IsSanitized() {
    return !std::string(ZO_SANITIZE).empty();
}

// Under this sanitizer a process without a free descriptor cannot check types.
bool NeedsDescriptors() {
    return std::string(ZO_SANITIZE).find("undefined") != std::string::npos;
}

/// Bytes of memory that the process has.
std::size_t Resident(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/statm");
    std::size_t size = 0;
    std::size_t resident = 0;
    file >> size >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

/// Processor time that the process has used.
milliseconds Busy(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string word;
    for (int field = 1; field <= 13; ++field) file >> word;
    long user = 0;
    long system = 0;
    file >> user >> system;
    return milliseconds((user + system) * 1000 / sysconf(_SC_CLK_TCK));
}

/// Descriptors that a child process inherits, for the life of this object.
class ManyDescriptors {
public:
    explicit ManyDescriptors(std::size_t count) {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
        while (m_handles.size() < count) {
            const int handle = open("/dev/null", O_RDONLY);  // NOLINT(android-cloexec-open): inherited
            if (handle == -1) return;
            m_handles.push_back(handle);
        }
    }
    ~ManyDescriptors() {
        for (const int handle : m_handles) close(handle);
    }
    ManyDescriptors(const ManyDescriptors&) = delete;
    ManyDescriptors& operator=(const ManyDescriptors&) = delete;

    std::size_t Size() const { return m_handles.size(); }

private:
    std::vector<int> m_handles;
};

std::string List(LineClient& client) {
    client.Send("LIST\n");
    return client.ReadThrough("END\n");
}

// A client that asks for the list, and takes no more of it than the system does.
std::unique_ptr<LineClient> Asker(const Agent& agent, const std::string& command = "LIST\n") {
    LineClient::Settings settings;
    settings.receiveBuffer = 4096;
    auto client = std::make_unique<LineClient>(agent.TextPort(), settings);
    client->Send(command);
    return client;
}

/// A feed of so many alarms of some 200 bytes each.
std::string LongFeed(int alarms) {
    std::string feed;
    for (int i = 1; i <= alarms; ++i) feed += RaiseLine(std::to_string(i), std::string(120, 't'));
    return feed;
}

// ---- Descriptors ----

TEST(AgentLoad, ServesTextClientsWhenMoreThanAThousandDescriptorsAreOpen) {
    constexpr std::size_t kOpen = 1100;
    const ManyDescriptors descriptors(kOpen);
    if (descriptors.Size() < kOpen) GTEST_SKIP() << "the system allows " << descriptors.Size() << " descriptors only";
    const AgentRoot root;
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());

    LineClient subscriber(agent.TextPort());
    subscriber.Send("SUBSCRIBE\n");
    EXPECT_EQ(subscriber.ReadThrough("END\n"), "SNAPSHOT 0 0\nEND\n");
    LineClient client(agent.TextPort());
    EXPECT_EQ(List(client), "LIST 0 0\nEND\n");
    root.Append(kFeed, RaiseLine("1"));
    EXPECT_EQ(subscriber.ReadLine().rfind("RAISED 1 id=1;", 0), 0U);
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentLoad, SaysAtItsStartThatDescriptorsAreTooFewForItsClients) {
    const AgentRoot root;
    root.SetItem("AsciiMaxClients", "500");
    Agent agent(root, {}, {}, {"/bin/sh", "-c", "ulimit -n 256; exec \"$0\" \"$@\""});
    ASSERT_TRUE(agent.WaitUntilReady());
    EXPECT_EQ(Count(root.Log(), "500 clients (AsciiMaxClients) need more descriptors than the 256 of this process"), 1U)
        << root.Log();
}

TEST(AgentLoad, TakesNoMoreTextClientsThanThereAreDescriptorsFor) {
    const AgentRoot root;
    root.SetItem("AsciiMaxClients", "500");
    Agent agent(root, {}, {}, {"/bin/sh", "-c", "ulimit -n 100; exec \"$0\" \"$@\""});
    ASSERT_TRUE(agent.WaitUntilReady());

    std::vector<std::unique_ptr<LineClient>> clients;
    const auto isServed = [](LineClient& client) {
        client.Send("LIST\n");
        return client.ReadThrough("END\n") == "LIST 0 0\nEND\n";
    };
    std::size_t served = 0;
    while (isServed(*clients.emplace_back(std::make_unique<LineClient>(agent.TextPort())))) ++served;
    LineClient oneMore(agent.TextPort());

    EXPECT_EQ(oneMore.ReadToEnd(), "ERROR too many clients\n");
    EXPECT_GT(served, 20U);
    EXPECT_LT(served, 66U);  // 32 and the three standard ones are for others
    EXPECT_EQ(Count(root.Log(), "taking " + std::to_string(served) + " clients\n"), 1U) << root.Log();
    EXPECT_EQ(Count(root.Log(), "no client can be accepted"), 0U) << root.Log();
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentLoad, SaysNothingOfDescriptorsWhenThereAreEnough) {
    const AgentRoot root;
    root.SetItem("AsciiMaxClients", "150");
    Agent agent(root, {}, {}, {"/bin/sh", "-c", "ulimit -n 256; exec \"$0\" \"$@\""});
    ASSERT_TRUE(agent.WaitUntilReady());
    EXPECT_EQ(Count(root.Log(), "descriptors"), 0U) << root.Log();
}

TEST(AgentLoad, WaitsForADescriptorWithoutWorkAndReportsThatOnce) {
    if (NeedsDescriptors()) GTEST_SKIP() << "this sanitizer needs a descriptor to check types";
    const AgentRoot root;
    root.SetItem("AsciiMaxClients", "500");
    root.SetItem("HeartbeatSeconds", "3600");
    root.SetItem("FeedPollMilliseconds", "60000");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    ASSERT_TRUE(agent.Process().LimitDescriptors(32));
    const std::string report = "no client can be accepted now: Too many open files\n";
    std::vector<std::unique_ptr<LineClient>> clients;
    while (clients.size() < 40) {
        clients.push_back(std::make_unique<LineClient>(agent.TextPort()));
        clients.back()->Send("LIST\n");
    }
    ASSERT_TRUE(root.WaitForLog(report));

    const milliseconds before = Busy(agent.Process().Pid());
    EXPECT_EQ(clients.back()->ReadLine(milliseconds(3500)), "");  // three times it has tried again
    EXPECT_LT(Busy(agent.Process().Pid()) - before, milliseconds(500));
    EXPECT_EQ(Count(root.Log(), report), 1U);

    clients.erase(clients.begin(), clients.begin() + 30);
    for (const auto& client : clients) EXPECT_EQ(client->ReadThrough("END\n"), "LIST 0 0\nEND\n");
    EXPECT_EQ(agent.Stop(), 0);
}

// ---- Clients that do not read ----

TEST(AgentLoad, ClientsThatDoNotReadTheirListsTakeLittleMemory) {
    if (IsSanitized()) GTEST_SKIP() << "what is freed under a sanitizer still counts as used";
    constexpr int kAlarms = 10000;
    constexpr int kClients = 200;
    const AgentRoot root;
    root.Write(kFeed, LongFeed(kAlarms));
    root.SetItem("AsciiMaxClients", "300");
    root.SetItem("HeartbeatSeconds", "1");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    ASSERT_TRUE(root.WaitForLog("feed: 10000 lines applied"));
    const std::size_t before = Resident(agent.Process().Pid());

    std::vector<std::unique_ptr<LineClient>> askers;
    while (askers.size() < kClients) {
        askers.push_back(Asker(agent, askers.size() % 2 == 0 ? "LIST\n" : "SUBSCRIBE\n"));
        ASSERT_NE(askers.back()->ReadLine(), "");
    }

    EXPECT_LT(Resident(agent.Process().Pid()), before + 32 * kMegabyte);
    LineClient reader(agent.TextPort());
    const std::string list = List(reader);
    EXPECT_EQ(Count(list, "ALARM id="), static_cast<std::size_t>(kAlarms));
    EXPECT_GT(list.size(), 2 * kMegabyte);
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentLoad, ListsOfATableThatChangesAreBoundedTooAndNobodyWaitsForLong) {
    constexpr int kAlarms = 2000;
    constexpr int kClients = 30;
    const AgentRoot root;
    root.Write(kFeed, LongFeed(kAlarms));
    root.SetItem("AsciiMaxClients", "300");
    root.SetItem("FeedPollMilliseconds", "5");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    LineClient subscriber(agent.TextPort());
    subscriber.Send("SUBSCRIBE\n");
    ASSERT_NE(subscriber.ReadThrough("END\n"), "");

    // Each of them would have a list of its own.
    std::vector<std::unique_ptr<LineClient>> askers;
    while (askers.size() < kClients) {
        askers.push_back(Asker(agent));
        const std::string id = std::to_string(kAlarms + askers.size());
        root.Append(kFeed, RaiseLine(id));
        const std::string raised = " id=" + id + ";";
        ASSERT_TRUE(WaitFor([&] { return subscriber.ReadLine().find(raised) != std::string::npos; }));
    }
    LineClient reader(agent.TextPort());
    const std::string list = List(reader);

    const int alarms = kAlarms + kClients;
    const std::string head = "LIST " + std::to_string(alarms) + " " + std::to_string(alarms) + "\n";
    EXPECT_EQ(list.substr(0, head.size()), head);
    EXPECT_EQ(Count(list, "ALARM id="), static_cast<std::size_t>(alarms));
    EXPECT_GE(Count(root.Log(), " cut off, it does not take its list while others wait for theirs\n"), 1U);
    EXPECT_TRUE(subscriber.IsOpen());
    EXPECT_EQ(agent.Stop(), 0);
}

TEST(AgentLoad, ASlowReaderGetsItsListAndThenEachChangeThatCameMeanwhile) {
    constexpr int kAlarms = 5000;
    constexpr int kMore = 500;
    const AgentRoot root;
    root.Write(kFeed, LongFeed(kAlarms));
    root.SetItem("HeartbeatSeconds", "1");
    root.SetItem("FeedPollMilliseconds", "5");
    Agent agent(root);
    ASSERT_TRUE(agent.WaitUntilReady());
    ASSERT_TRUE(root.WaitForLog("feed: 5000 lines applied"));
    const auto slow = Asker(agent, "SUBSCRIBE\n");
    ASSERT_EQ(slow->ReadLine(), "SNAPSHOT 5000 5000\n");
    LineClient quick(agent.TextPort());
    quick.Send("SUBSCRIBE\n");
    ASSERT_NE(quick.ReadThrough("END\n"), "");

    for (int i = 1; i <= kMore; ++i) root.Append(kFeed, RaiseLine(std::to_string(kAlarms + i)));
    for (int i = 1; i <= kMore; ++i) ASSERT_NE(quick.ReadLine(), "");

    EXPECT_EQ(Count(slow->ReadThrough("END\n"), "ALARM id="), static_cast<std::size_t>(kAlarms));
    for (int i = 1; i <= kMore; ++i) {
        const std::string number = std::to_string(kAlarms + i);
        ASSERT_EQ(slow->ReadLine().rfind("RAISED " + number + " id=" + number + ";", 0), 0U);
    }
    EXPECT_EQ(agent.Stop(), 0);
}

}  // namespace
}  // namespace test
