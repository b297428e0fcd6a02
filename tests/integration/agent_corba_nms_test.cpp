// The client program, zo_nms.
#include <algorithm>
#include <csignal>

#include <gtest/gtest.h>

#include <omniORB4/CORBA.h>

#include "alarm.hh"
#include "integration/agentcorbatest.h"
#include "support/childprocess.h"
#include "support/tempdir.h"
#include "support/wait.h"

namespace test {
namespace {

/// The client program, zo_nms.
class NmsTest : public AgentCorbaTest {
protected:
    struct Result {
        int status;
        std::string out;
        std::string err;
    };

    ChildProcess::Command Command(const std::vector<std::string>& options) const {
        ChildProcess::Command command;
        command.words = {ZO_NMS};
        command.words.insert(command.words.end(), options.begin(), options.end());
        command.out = m_root / "nms.out";
        command.err = m_root / "nms.err";
        return command;
    }

    std::string Out() const { return ReadFile(m_root / "nms.out"); }
    std::string Err() const { return ReadFile(m_root / "nms.err"); }

    Result Run(const std::vector<std::string>& options) const {
        for (const char* const file : {"nms.out", "nms.err"}) std::filesystem::remove(m_root / file);
        ChildProcess nms(Command(options));
        const int status = nms.Wait();
        return {status, Out(), Err()};
    }

    std::string Naming() const { return "127.0.0.1:" + m_naming->Port(); }
};

TEST_F(NmsTest, ListsTheAlarms) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed(
        "event=raise;id=7;object=NE-7;severity=major;cause=fire;time=noon;text=\xd6\xd0\n"
        "event=raise;id=8;object=NE-8;severity=warning\n");
    ASSERT_TRUE(WaitForSize(2));

    const Result result = Run({"--naming", Naming()});

    EXPECT_EQ(result.out,
              "ALARM id=7;object=NE-7;severity=major;cause=fire;time=noon;text=\xe4\xb8\xad;ack.user=\n"
              "ALARM id=8;object=NE-8;severity=warning;cause=;time=;text=;ack.user=\n"
              "END 2\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(NmsTest, ListsMoreAlarmsThanOneReplyHolds) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed(RaiseLines("a", 950));
    ASSERT_TRUE(WaitForSize(950));

    const Result result = Run({"--naming", Naming(), "--list"});

    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 951);
    EXPECT_NE(result.out.find("\nALARM id=a0950;object=NE-0950;"), std::string::npos);
    EXPECT_EQ(result.out.substr(result.out.size() - 8), "END 950\n");
}

TEST_F(NmsTest, Acknowledges) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed("event=raise;id=7;object=NE-7;severity=minor\n");
    ASSERT_TRUE(WaitForSize(1));

    const Result result = Run({"--naming", Naming(), "--ack", "7", "--user", "bob"});

    EXPECT_EQ(result.out, "ACKNOWLEDGED id=7;ack.user=bob\n");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(Text(NbiAlarm::Alarm_var(m_service->getAlarm("7"))), "7|NE-7|MINOR||||bob");
}

TEST_F(NmsTest, AcknowledgingAnUnknownAlarmFails) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());

    const Result result = Run({"--naming", Naming(), "--ack", "7"});

    EXPECT_EQ(result.err, "zo_nms: no alarm '7' is active\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 1);
}

TEST_F(NmsTest, WatchesUntilItIsAskedToEnd) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed("event=raise;id=7;object=NE-7;severity=minor\n");
    ASSERT_TRUE(WaitForSize(1));
    ASSERT_TRUE(m_client->WaitForName("zo/AlarmChannel"));
    ChildProcess nms(Command({"--naming", Naming(), "--list", "--watch"}));
    ASSERT_TRUE(WaitFor([&] { return Out().find("WATCHING\n") != std::string::npos; })) << Err();

    Feed(
        "event=change;id=7;severity=critical\n"
        "event=clear;id=7\n");

    const std::string expected =
        "ALARM id=7;object=NE-7;severity=minor;cause=;time=;text=;ack.user=\n"
        "END 1\n"
        "WATCHING\n"
        "CHANGED 2 id=7;severity=critical\n"
        "CLEARED 3 id=7\n";
    EXPECT_TRUE(WaitFor([&] { return Out() == expected; })) << Out() << Err();
    nms.Signal(SIGTERM);
    EXPECT_EQ(nms.Wait(), 0);
    EXPECT_EQ(Err(), "");
}

TEST_F(NmsTest, WatchesOnWhenTheEventServiceWasRestartedWithoutItsData) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    ASSERT_TRUE(m_client->WaitForName("zo/AlarmChannel"));
    ChildProcess nms(Command({"--naming", Naming(), "--watch"}));
    ASSERT_TRUE(WaitFor([&] { return Out().find("WATCHING\n") != std::string::npos; })) << Err();

    m_events->Kill();
    ASSERT_TRUE(WaitFor([&] { return Err().find("zo_nms: the event channel is away") != std::string::npos; }));
    ASSERT_TRUE(m_events->StartEmpty());
    ASSERT_TRUE(WaitFor([&] { return Err().find("zo_nms: the event channel is there again\n") != std::string::npos; }))
        << Err() << m_root.Log();
    Feed("event=raise;id=7;object=NE-7;severity=minor\n");

    EXPECT_TRUE(WaitFor([&] { return Out().find("RAISED 1 id=7;object=NE-7;severity=minor;") != std::string::npos; }))
        << Out();
}

TEST_F(NmsTest, TellsARestartOfTheAgentWhoseNumbersAreBelowThoseOfTheList) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    Feed(RaiseLines("a", 3));
    ASSERT_TRUE(WaitForSize(3));
    ASSERT_TRUE(m_client->WaitForName("zo/AlarmChannel"));
    ChildProcess nms(Command({"--naming", Naming(), "--list", "--watch"}));
    ASSERT_TRUE(WaitFor([&] { return Out().find("END 3\nWATCHING\n") != std::string::npos; })) << Err();
    const std::string before = Out();

    ASSERT_NO_FATAL_FAILURE(RestartAgent());
    Feed(
        "event=raise;id=7;object=NE-7;severity=minor\n"
        "event=clear;id=7\n");

    const std::string expected =
        "RESTARTED the agent has begun anew, list its alarms again\n"
        "RAISED 1 id=7;object=NE-7;severity=minor;cause=;time=;text=;ack.user=\n"
        "CLEARED 2 id=7\n";
    EXPECT_TRUE(WaitFor([&] { return Out() == before + expected; })) << Out() << Err();
}

TEST_F(NmsTest, TellsThatTheNamingServiceDoesNotAnswer) {
    m_naming->Kill();

    const Result result = Run({"--naming", Naming()});

    EXPECT_EQ(result.err, "zo_nms: the naming service at " + Naming() + " does not answer (TRANSIENT_ConnectFailed)\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(NmsTest, TellsThatThereIsNoAgent) {
    const Result result = Run({"--naming", Naming()});

    EXPECT_EQ(result.err,
              "zo_nms: zo/AlarmAgent is not in the naming service at " + Naming() + "; is the agent running?\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(NmsTest, TellsThatTheAgentDoesNotAnswer) {
    ASSERT_NO_FATAL_FAILURE(StartAgentAndClient());
    m_agent.reset();  // kills it

    const Result result = Run({"--naming", Naming()});

    EXPECT_EQ(result.err, "zo_nms: the agent or the event channel does not answer (TRANSIENT_ConnectFailed)\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(NmsTest, HelpGoesToStandardOutput) {
    const Result result = Run({"--help"});

    EXPECT_EQ(result.out.substr(0, 14), "usage: zo_nms ");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(NmsTest, WrongArgumentsShowTheUsage) {
    for (const auto& options : std::vector<std::vector<std::string>>{
             {"--naming"}, {"--watch", "0"}, {"--watch", "x"}, {"--ack", ""}, {"alarms"}}) {
        const Result result = Run(options);

        EXPECT_EQ(result.err.substr(0, 14), "usage: zo_nms ");
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.status, 2);
    }
}

}  // namespace
}  // namespace test
