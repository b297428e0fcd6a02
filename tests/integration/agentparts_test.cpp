// Parts of the agent by themselves: what its services stand on.
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <bundlemgr/bundlemgr.h>
#include <bundlemgr/event.h>
#include <bundlemgr/kit.h>

#include "alarm.h"
#include "alarmevent.h"
#include "alarmtableimpl.h"
#include "changejudge.h"
#include "descriptors.h"
#include "feedfollower.h"
#include "lossreport.h"
#include "refusallog.h"
#include "support/environment.h"
#include "support/tempdir.h"
#include "support/wait.h"

namespace {

using alarms::Alarm;
using alarms::FeedFollower;
using NS_BUNDLEMGR1::LightEventMgr;
using NS_BUNDLEMGR1::LightEventParam;
using std::chrono::milliseconds;
using test::WaitFor;

// A process with an event manager and a log.
class AgentPart : public testing::Test {
protected:
    AgentPart() : m_logDir("_APP_LOG_DIR", m_dir.Path()) { LightEventMgr::Instance()->Init(); }
    ~AgentPart() override {
        LightEventMgr::Destroy();
        NS_BUNDLEMGR1::BundleMgr::Destroy();
        NS_BUNDLEMGR1::LogProxyDebugInfoBufMgr::Destroy();
    }

    /// Waits until what was posted so far is handled: the parameters of events that are
    /// still queued at the end would be nobody's.
    static void HandleEvents() {
        constexpr int kLast = 5000;
        std::atomic<bool> handled{false};
        zo::EventSubscription last;
        last.Open(kLast, [&handled](LightEventParam*) { handled = true; });
        LightEventMgr::Instance()->Push_Msg(kLast, nullptr, 0);
        EXPECT_TRUE(WaitFor([&handled] { return handled.load(); }));
    }

    const test::TempDir m_dir;
    const test::ScopedEnv m_logDir;
};

// ---- Alarm ----

TEST(AgentAlarm, NamesItsAttributesAndSetsThemByName) {
    Alarm alarm;
    EXPECT_TRUE(alarms::SetAttribute(alarm, "severity", "warning"));
    EXPECT_TRUE(alarms::SetAttribute(alarm, "ack.user", "me"));
    EXPECT_FALSE(alarms::SetAttribute(alarm, "severity", "Warning"));
    EXPECT_FALSE(alarms::SetAttribute(alarm, "id", "5"));
    EXPECT_EQ(alarm.severity, alarms::SEVERITY_WARNING);
    EXPECT_EQ(alarm.ackUser, "me");
    std::string all;
    for (const std::string& name : alarms::AttributeNames()) {
        all += name + "=" + alarms::AttributeText(alarm, name) + ";";
    }
    EXPECT_EQ(all, "object=;severity=warning;cause=;time=;text=;ack.user=me;");
    EXPECT_EQ(alarms::AttributeText(alarm, "id"), "");
}

TEST(AgentAlarm, IsDescribedByASchemaWhosePathsAreItsAttributes) {
    ObjectSchema_T schema = alarms::MakeAlarmSchema();
    for (const std::string& name : alarms::AttributeNames()) {
        EXPECT_FALSE(__IsDirty(schema, name.c_str())) << name;
        EXPECT_TRUE(__SetDirty(schema, name.c_str())) << name;
        EXPECT_TRUE(__IsDirty(schema, name.c_str())) << name;
    }
    EXPECT_FALSE(__SetDirty(schema, "id"));
}

// ---- AlarmTable ----

TEST_F(AgentPart, SnapshotsOfATableThatHasNotChangedAreOneAndTheSame) {
    alarms::AlarmTableImpl table;
    table.Raise({"1", "NE-1", alarms::SEVERITY_MINOR, "", "", "", ""});
    const std::shared_ptr<const alarms::AlarmSnapshot> first = table.Snapshot();
    EXPECT_TRUE(table.Change("1", {{"severity", "minor"}}));  // it is already
    EXPECT_EQ(table.Snapshot(), first);

    table.Raise({"2", "NE-2", alarms::SEVERITY_MAJOR, "", "", "", ""});
    table.Clear("1");
    const std::shared_ptr<const alarms::AlarmSnapshot> second = table.Snapshot();
    EXPECT_NE(second, first);
    EXPECT_EQ(first->sequence, 1U);
    ASSERT_EQ(first->alarms.size(), 1U);
    EXPECT_EQ(first->alarms[0].id, "1");
    EXPECT_EQ(second->sequence, 3U);
    ASSERT_EQ(second->alarms.size(), 1U);
    EXPECT_EQ(second->alarms[0].id, "2");
    HandleEvents();
}

TEST_F(AgentPart, ATableKeepsNoSnapshotThatNobodyHas) {
    alarms::AlarmTableImpl table;
    const std::weak_ptr<const alarms::AlarmSnapshot> snapshot = table.Snapshot();
    EXPECT_TRUE(snapshot.expired());
}

// ---- Descriptors ----

TEST(AgentDescriptors, AreCountedWithoutTheOneThatCountingTakes) {
    const std::size_t before = alarms::OpenDescriptors();
    const int handle = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_NE(handle, -1);

    EXPECT_EQ(alarms::OpenDescriptors(), before + 1);
    close(handle);
    EXPECT_EQ(alarms::OpenDescriptors(), before);
    EXPECT_GE(before, 3U);
}

TEST(AgentDescriptors, AreLimitedAsTheSystemSaysAndNotCountedWhenNoneIsLeft) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none = {0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const std::size_t limit = alarms::DescriptorLimit();
    const std::size_t open = alarms::OpenDescriptors();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);

    EXPECT_EQ(limit, 0U);
    EXPECT_EQ(open, 0U);
    EXPECT_EQ(alarms::DescriptorLimit(), before.rlim_cur);
}

// ---- RefusalLog ----

using RefusalTime = alarms::RefusalLog::TimePoint;

std::string Address(std::size_t number) {
    return "10.0." + std::to_string(number / 256) + "." + std::to_string(number % 256);
}

TEST(AgentRefusalLog, TellsOfEachAddressOnceAMinute) {
    alarms::RefusalLog refusals;
    const RefusalTime begin{};
    EXPECT_TRUE(refusals.ShouldTell("127.0.0.2", begin));
    EXPECT_TRUE(refusals.ShouldTell("127.0.0.3", begin));
    EXPECT_FALSE(refusals.ShouldTell("127.0.0.2", begin));
    EXPECT_FALSE(refusals.ShouldTell("127.0.0.2", begin + milliseconds(59999)));
    EXPECT_TRUE(refusals.ShouldTell("127.0.0.2", begin + std::chrono::seconds(60)));
    EXPECT_FALSE(refusals.ShouldTell("127.0.0.2", begin + std::chrono::seconds(119)));
    EXPECT_TRUE(refusals.ShouldTell("127.0.0.3", begin + std::chrono::seconds(119)));
}

TEST(AgentRefusalLog, RemembersABoundedNumberOfAddressesAndForgetsTheOld) {
    alarms::RefusalLog refusals;
    const RefusalTime begin{};
    for (std::size_t i = 0; i < alarms::RefusalLog::kMaxAddresses; ++i) {
        ASSERT_TRUE(refusals.ShouldTell(Address(i), begin + milliseconds(i)));
    }
    EXPECT_FALSE(refusals.ShouldTell("192.0.2.1", begin + std::chrono::seconds(30)));
    EXPECT_FALSE(refusals.ShouldTell(Address(0), begin + std::chrono::seconds(30)));
    EXPECT_FALSE(refusals.ShouldTell("192.0.2.1", begin + milliseconds(59999)));
    // The first one has left, and makes room for one.
    EXPECT_TRUE(refusals.ShouldTell("192.0.2.1", begin + std::chrono::seconds(60)));
    EXPECT_FALSE(refusals.ShouldTell("192.0.2.2", begin + std::chrono::seconds(60)));
    EXPECT_TRUE(refusals.ShouldTell("192.0.2.2", begin + milliseconds(60001)));
}

TEST(AgentRefusalLog, TellsOnceHoweverManyThreadsAsk) {
    constexpr int kThreads = 4;
    constexpr int kAddresses = 500;
    alarms::RefusalLog refusals;
    std::atomic<int> told{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int address = 0; address < kAddresses; ++address) {
                if (refusals.ShouldTell(Address(static_cast<std::size_t>(address)), RefusalTime{})) ++told;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(told, kAddresses);
}

// ---- LossReport ----

using LossTime = LossReport::TimePoint;

NS_BUNDLEMGR1::LogLoss Losing(unsigned long long records) {
    NS_BUNDLEMGR1::LogLoss loss;
    loss.records = records;
    loss.since = ACE_Time_Value(1709251509);  // 2024-03-01 00:05:09 UTC
    return loss;
}

NS_BUNDLEMGR1::LogLoss Keeping(unsigned long long lost) {
    NS_BUNDLEMGR1::LogLoss loss;
    loss.records = lost;
    return loss;
}

TEST(AgentLossReport, TellsWhenALossBeginsAndWhenItIsOver) {
    const test::ScopedEnv zone("TZ", "UTC");
    tzset();
    LossReport report(false);
    const LossTime now{};
    EXPECT_EQ(report.Next(Keeping(0), now), "");
    EXPECT_EQ(report.Next(Losing(1), now), "the log loses records since 2024-03-01 00:05:09");
    EXPECT_EQ(report.Next(Losing(500), now + std::chrono::hours(1)), "");
    EXPECT_EQ(report.Next(Keeping(700), now + std::chrono::hours(2)), "the log is kept again, 700 records were lost");
    EXPECT_EQ(report.Next(Keeping(700), now + std::chrono::hours(3)), "");
    EXPECT_NE(report.Next(Losing(701), now + std::chrono::hours(4)), "");
    EXPECT_EQ(report.Next(Keeping(702), now + std::chrono::hours(5)), "the log is kept again, 2 records were lost");
}

TEST(AgentLossReport, TellsOfOneLossAMinute) {
    LossReport report(false);
    const LossTime now{};
    EXPECT_NE(report.Next(Losing(1), now), "");
    EXPECT_NE(report.Next(Keeping(1), now + std::chrono::seconds(1)), "");
    EXPECT_EQ(report.Next(Losing(2), now + std::chrono::seconds(2)), "");
    EXPECT_EQ(report.Next(Keeping(3), now + std::chrono::seconds(3)), "");
    EXPECT_EQ(report.Next(Losing(4), now + std::chrono::seconds(59)), "");
    EXPECT_NE(report.Next(Losing(4), now + std::chrono::seconds(60)), "");
    EXPECT_EQ(report.Next(Keeping(4), now + std::chrono::seconds(61)), "the log is kept again, 3 records were lost");
}

TEST(AgentLossReport, TellsOfALossThatWasOverBeforeAnybodyLooked) {
    LossReport report(false);
    const LossTime now{};
    EXPECT_EQ(report.Next(Keeping(3), now), "the log is kept again, 3 records were lost");
    EXPECT_EQ(report.Next(Keeping(3), now + std::chrono::hours(1)), "");
}

TEST(AgentLossReport, OfALossThatIsKnownItTellsTheEndAlone) {
    LossReport report(true);
    const LossTime now{};
    EXPECT_EQ(report.Next(Losing(5), now), "");
    EXPECT_EQ(report.Next(Keeping(9), now), "the log is kept again, 9 records were lost");
}

// ---- FeedFollower ----

class Lines : public FeedFollower::Reader {
public:
    void Line(unsigned long number, const std::string& text) override {
        all.push_back(std::to_string(number) + ":" + text);
    }
    void TooLong(unsigned long number) override { all.push_back(std::to_string(number) + " too long"); }
    void Notice(const std::string& text) override { notices.push_back(text); }
    bool Stopping() override { return false; }

    std::vector<std::string> all;
    std::vector<std::string> notices;
};

using Texts = std::vector<std::string>;

TEST(AgentFeedFollower, TakesLinesOfUpToItsBoundWholeAndNoOthers) {
    const test::TempDir dir;
    const std::string longest(FeedFollower::kMaxLine, 'x');
    Lines lines;
    FeedFollower follower(dir.Write("feed", longest + "\n" + longest + "x\n\nlast\n"), lines);
    follower.Poll();
    EXPECT_EQ(lines.all, (Texts{"1:" + longest, "2 too long", "3:", "4:last"}));
}

TEST(AgentFeedFollower, KeepsALineUntilItsEndIsThere) {
    const test::TempDir dir;
    Lines lines;
    FeedFollower follower(dir.Write("feed", "a"), lines);
    follower.Poll();
    EXPECT_EQ(lines.all, Texts());
    std::ofstream(dir / "feed", std::ios::app) << "b";
    follower.Poll();
    EXPECT_EQ(lines.all, Texts());
    std::ofstream(dir / "feed", std::ios::app) << "\nc\n";
    follower.Poll();
    EXPECT_EQ(lines.all, (Texts{"1:ab", "2:c"}));
    follower.Poll();
    EXPECT_EQ(lines.all, (Texts{"1:ab", "2:c"}));
}

TEST(AgentFeedFollower, ReportsWhatIsNoFileOnceAndTakesTheFileThatReplacesIt) {
    const test::TempDir dir;
    ASSERT_EQ(mkfifo((dir / "feed").c_str(), 0600), 0);
    Lines lines;
    FeedFollower follower(dir / "feed", lines);
    follower.Poll();
    follower.Poll();
    EXPECT_EQ(lines.notices, (Texts{"cannot be read yet: Invalid argument"}));
    std::filesystem::remove(dir / "feed");
    dir.Write("feed", "a\n");
    follower.Poll();
    EXPECT_EQ(lines.all, (Texts{"1:a"}));
    EXPECT_EQ(lines.notices, (Texts{"cannot be read yet: Invalid argument", "is being followed"}));
}

TEST(AgentFeedFollower, EndsTheOldFileBeforeItBeginsTheNewOne) {
    const test::TempDir dir;
    Lines lines;
    FeedFollower follower(dir.Write("feed", "a\n"), lines);
    follower.Poll();
    std::filesystem::rename(dir / "feed", dir / "feed.1");
    follower.Poll();  // there is no new file yet
    std::ofstream(dir / "feed.1", std::ios::app) << "b\nc";
    dir.Write("feed", "d\n");
    follower.Poll();
    EXPECT_EQ(lines.all, (Texts{"1:a", "2:b", "3:c", "1:d"}));
    EXPECT_EQ(lines.notices, (Texts{"is being followed", "was replaced by a new file", "is being followed"}));
}

TEST(AgentFeedFollower, BeginsAgainWhenTheFileIsCutBack) {
    const test::TempDir dir;
    Lines lines;
    FeedFollower follower(dir.Write("feed", "a\nunfinished"), lines);
    follower.Poll();
    dir.Write("feed", "b\n");  // the same file, with other content
    follower.Poll();
    EXPECT_EQ(lines.all, (Texts{"1:a", "1:b"}));
    EXPECT_EQ(lines.notices, (Texts{"is being followed", "was cut back, reading it from its beginning"}));
}

// ---- ChangeJudge ----

constexpr std::uint64_t kRun = 1700000000000000;
constexpr std::uint64_t kNextRun = kRun + 1;

/// What the judge says to each change, in a word.
Texts Judgements(ChangeJudge& judge, const std::vector<ChangePosition>& changes) {
    Texts texts;
    for (const ChangePosition& change : changes) {
        const ChangeJudgement judgement = judge.Judge(change);
        std::string text = judgement.isNews ? "news" : "known";
        if (judgement.restarted) text += " restarted";
        if (judgement.lost != 0) text += " lost=" + std::to_string(judgement.lost);
        texts.push_back(text);
    }
    return texts;
}

TEST(AgentChangeJudge, TakesTheChangesBehindTheListOneByOne) {
    ChangeJudge judge;
    judge.SetListed({kRun, 2});
    EXPECT_EQ(Judgements(judge, {{kRun, 1}, {kRun, 2}, {kRun, 3}, {kRun, 4}}),
              (Texts{"known", "known", "news", "news"}));
}

TEST(AgentChangeJudge, BeginsAnywhereWithoutAList) {
    ChangeJudge judge;
    EXPECT_EQ(Judgements(judge, {{kRun, 17}, {kRun, 18}}), (Texts{"news", "news"}));
}

TEST(AgentChangeJudge, TellsHowManyAreLost) {
    ChangeJudge judge;
    judge.SetListed({kRun, 0});
    EXPECT_EQ(Judgements(judge, {{kRun, 3}, {kRun, 4}, {kRun, 6}}), (Texts{"news lost=2", "news", "news lost=1"}));
}

TEST(AgentChangeJudge, SkipsWhatComesAgainOrLateWithoutFallingBack) {
    ChangeJudge judge;
    judge.SetListed({kRun, 10});
    EXPECT_EQ(Judgements(judge, {{kRun, 11}, {kRun, 11}, {kRun, 12}, {kRun, 13}, {kRun, 11}, {kRun, 14}}),
              (Texts{"news", "known", "news", "news", "known", "news"}));
}

TEST(AgentChangeJudge, KnowsANewRunByItsStartWhateverItsNumbers) {
    ChangeJudge judge;
    judge.SetListed({kRun, 500});
    EXPECT_EQ(Judgements(judge, {{kNextRun, 1}, {kNextRun, 2}, {kNextRun, 2}, {kNextRun, 4}}),
              (Texts{"news restarted", "news", "known", "news lost=1"}));
    ChangeJudge ahead;
    ahead.SetListed({kRun, 1});
    EXPECT_EQ(Judgements(ahead, {{kNextRun, 500}, {kNextRun, 501}}), (Texts{"news restarted", "news"}));
    // A clock that was set back makes the later start the smaller one.
    ChangeJudge back;
    back.SetListed({kNextRun, 5});
    EXPECT_EQ(Judgements(back, {{kRun, 6}}), (Texts{"news restarted"}));
}

}  // namespace
