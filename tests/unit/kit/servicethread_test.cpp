#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include <bundlemgr/kit.h>

#include "support/capture.h"
#include "support/forkedchild.h"
#include "support/longcall.h"
#include "support/wait.h"
#include "unit/log/logtest.h"

#if defined(__SANITIZE_THREAD__)
constexpr bool kChildMayStartThreads = false;  // this sanitizer ends one that does
#else
constexpr bool kChildMayStartThreads = true;
#endif

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using test::StdoutOf;
using test::WaitFor;

constexpr milliseconds kAWhile(50);  // in which what must not happen would

const zo::Log g_log("Thread", "bundle", "Svc");

// A round in which the thread stays until it is let go.
class Blocking : public test::LongCall {
public:
    zo::ServiceThread::Round Round() {
        return [this]() -> milliseconds {
            Stay();
            return hours(1);
        };
    }
};

std::future<void> StopElsewhere(zo::ServiceThread& thread) {
    return std::async(std::launch::async, [&thread] { thread.Stop(); });
}

bool IsOverInAWhile(const std::future<void>& stop) {
    return stop.wait_for(kAWhile) == std::future_status::ready;
}

bool IsOverSoon(const std::future<void>& stop) {
    return stop.wait_for(test::kDeadline) == std::future_status::ready;
}

class ServiceThreadTest : public test::LogTest {};

TEST_F(ServiceThreadTest, WorksInRoundsAndStopsInTheMiddleOfAPause) {
    std::atomic<int> rounds{0};
    zo::ServiceThread thread(g_log);
    thread.Start([&] { return ++rounds < 3 ? milliseconds(0) : milliseconds(hours(1)); });
    EXPECT_TRUE(WaitFor([&] { return rounds == 3; }));
    EXPECT_FALSE(thread.Stopping());
    thread.Stop();
    EXPECT_TRUE(thread.Stopping());
    EXPECT_EQ(3, rounds);
}

TEST_F(ServiceThreadTest, StoppedBeforeItStartsItDoesNothingAndCanStart) {
    std::atomic<int> rounds{0};
    zo::ServiceThread thread(g_log);
    thread.Stop();
    thread.Wake();
    EXPECT_FALSE(thread.Stopping());
    thread.Start([&]() -> milliseconds {
        ++rounds;
        return hours(1);
    });
    EXPECT_TRUE(WaitFor([&] { return rounds == 1; }));
    thread.Stop();
    thread.Stop();
}

TEST_F(ServiceThreadTest, ItsDestructorStopsIt) {
    Blocking blocking;
    auto thread = std::make_unique<zo::ServiceThread>(g_log);
    thread->Start(blocking.Round());
    ASSERT_TRUE(blocking.AwaitInside());
    const std::future<void> destroyed = std::async(std::launch::async, [&] { thread.reset(); });
    EXPECT_FALSE(IsOverInAWhile(destroyed));
    blocking.Release();
    EXPECT_TRUE(IsOverSoon(destroyed));
    EXPECT_FALSE(blocking.IsInside());
}

TEST_F(ServiceThreadTest, ThreadsThatStopItAtOnceAllWaitForItsEnd) {
    Blocking blocking;
    zo::ServiceThread thread(g_log);
    thread.Start(blocking.Round());
    ASSERT_TRUE(blocking.AwaitInside());
    const std::future<void> one = StopElsewhere(thread);
    const std::future<void> another = StopElsewhere(thread);
    EXPECT_FALSE(IsOverInAWhile(one));
    EXPECT_FALSE(IsOverInAWhile(another));
    blocking.Release();
    EXPECT_TRUE(IsOverSoon(one));
    EXPECT_TRUE(IsOverSoon(another));
}

TEST_F(ServiceThreadTest, StopsFromItsOwnRoundAndIsWaitedForByOthers) {
    std::atomic<bool> isStopped{false};
    std::atomic<bool> isReleased{false};
    std::atomic<int> rounds{0};
    zo::ServiceThread thread(g_log);
    thread.Start([&] {
        ++rounds;
        thread.Stop();
        isStopped = thread.Stopping();
        WaitFor([&] { return isReleased.load(); });
        return milliseconds(0);
    });
    ASSERT_TRUE(WaitFor([&] { return isStopped.load(); }));
    const std::future<void> stop = StopElsewhere(thread);
    EXPECT_FALSE(IsOverInAWhile(stop));
    isReleased = true;
    EXPECT_TRUE(IsOverSoon(stop));
    EXPECT_EQ(1, rounds);
}

TEST_F(ServiceThreadTest, MayBeDestroyedByItsOwnRound) {
    auto thread = std::make_unique<zo::ServiceThread>(g_log);
    std::promise<void> ended;
    // Goes with the function, which goes at the end of the thread.
    const std::shared_ptr<int> atEnd(new int, [&ended](const int* number) {
        delete number;
        ended.set_value();
    });
    std::promise<void> begin;
    thread->Start([&thread, &begin, end = atEnd]() -> milliseconds {
        begin.get_future().wait();
        thread.reset();
        throw std::runtime_error("its log is gone as well");
    });
    const_cast<std::shared_ptr<int>&>(atEnd).reset();
    StdoutOf([&] {
        begin.set_value();
        EXPECT_EQ(std::future_status::ready, ended.get_future().wait_for(test::kDeadline));
    });
}

TEST_F(ServiceThreadTest, StartsOnceMoreAfterItsEnd) {
    zo::ServiceThread thread(g_log);
    for (int i = 0; i < 100; ++i) {
        std::atomic<int> rounds{0};
        thread.Start([&]() -> milliseconds {
            ++rounds;
            return hours(1);
        });
        ASSERT_TRUE(WaitFor([&] { return rounds == 1; }));
        thread.Stop();
    }
}

TEST_F(ServiceThreadTest, StartedInPlaceOfAnotherItWaitsForItsEnd) {
    Blocking former;
    std::atomic<bool> overlapped{false};
    std::atomic<int> rounds{0};
    zo::ServiceThread thread(g_log);
    thread.Start(former.Round());
    ASSERT_TRUE(former.AwaitInside());
    thread.Start([&]() -> milliseconds {
        overlapped = former.IsInside();
        ++rounds;
        return hours(1);
    });
    former.Release();
    EXPECT_TRUE(WaitFor([&] { return rounds == 1; }));
    EXPECT_FALSE(overlapped);
    thread.Stop();
}

// As a service does that restarts itself with fini and init on its own thread.
TEST_F(ServiceThreadTest, RestartsItselfFromItsOwnRound) {
    std::atomic<int> rounds{0};
    std::atomic<bool> formerIsStopping{false};
    std::atomic<bool> isReleased{false};
    zo::ServiceThread thread(g_log);
    thread.Start([&] {
        thread.Stop();
        thread.Start([&]() -> milliseconds {
            ++rounds;
            return hours(1);
        });
        formerIsStopping = thread.Stopping();
        thread.Stop();
        thread.Start([&]() -> milliseconds {
            rounds += 10;
            return hours(1);
        });
        WaitFor([&] { return isReleased.load(); });
        return milliseconds(0);
    });
    ASSERT_TRUE(WaitFor([&] { return formerIsStopping.load(); }));
    EXPECT_EQ(0, rounds);
    isReleased = true;
    EXPECT_TRUE(WaitFor([&] { return rounds == 10; }));
    thread.Stop();
    EXPECT_EQ(10, rounds);
}

TEST_F(ServiceThreadTest, ItsStopWaitsForTheThreadThatItReplacedToo) {
    Blocking former;
    zo::ServiceThread thread(g_log);
    thread.Start(former.Round());
    ASSERT_TRUE(former.AwaitInside());
    thread.Start([]() -> milliseconds { return hours(1); });
    const std::future<void> stop = StopElsewhere(thread);
    EXPECT_FALSE(IsOverInAWhile(stop));
    former.Release();
    EXPECT_TRUE(IsOverSoon(stop));
    EXPECT_FALSE(former.IsInside());
}

TEST_F(ServiceThreadTest, WakeEndsThePause) {
    std::atomic<int> rounds{0};
    zo::ServiceThread thread(g_log);
    thread.Start([&] {
        ++rounds;
        return milliseconds::max();
    });
    for (int i = 1; i <= 3; ++i) {
        EXPECT_TRUE(WaitFor([&] { return rounds == i; }));
        thread.Wake();
    }
    EXPECT_TRUE(WaitFor([&] { return rounds == 4; }));
    thread.Stop();
}

TEST_F(ServiceThreadTest, AnExceptionIsReportedAndTheNextRoundFollows) {
    std::atomic<int> rounds{0};
    StdoutOf([&] {
        zo::ServiceThread thread(g_log);
        thread.Start([&]() -> milliseconds {
            if (++rounds == 1) throw std::runtime_error("no table");
            if (rounds == 2) throw 1;  // NOLINT(hicpp-exception-baseclass): that is the case
            return hours(1);
        });
        EXPECT_TRUE(WaitFor([&] { return rounds == 3; }));
        thread.Stop();
    });
    const std::vector<test::LogRecord> records = test::ParseLog(Log());
    EXPECT_THAT(test::Texts(records),
                testing::ElementsAre("the service's thread failed and tries again: no table\n",
                                     "the service's thread failed and tries again: not a standard exception\n"));
    ASSERT_FALSE(records.empty());
    EXPECT_EQ("bundle", records[0].bundle);
    EXPECT_EQ("Svc", records[0].service);
    EXPECT_EQ("servicethread", records[0].file);
    EXPECT_EQ(1, records[0].level);
}

TEST_F(ServiceThreadTest, ARoundMayEndItsThread) {
    std::atomic<bool> isInside{false};
    zo::ServiceThread thread(g_log);
    thread.Start([&]() -> milliseconds {
        isInside = true;
        pthread_exit(nullptr);
    });
    EXPECT_TRUE(WaitFor([&] { return isInside.load(); }));
    thread.Stop();
    EXPECT_EQ("", Log());
}

TEST_F(ServiceThreadTest, ItsEndDestroysTheFunction) {
    auto captured = std::make_shared<int>();
    zo::ServiceThread thread(g_log);
    thread.Start([captured]() -> milliseconds { return hours(1); });
    thread.Stop();
    EXPECT_EQ(1, captured.use_count());
}

TEST_F(ServiceThreadTest, ManyThreadsMayStartStopAndWakeItAtOnce) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 100;
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    zo::ServiceThread thread(g_log);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                thread.Start([&]() -> milliseconds {
                    if (++inside > 1) overlapped = true;
                    --inside;
                    return hours(1);
                });
                thread.Wake();
                thread.Stop();
            }
        });
    }
    for (std::thread& other : threads) other.join();
    thread.Stop();
    EXPECT_FALSE(overlapped);
    EXPECT_EQ(0, inside);
}

TEST_F(ServiceThreadTest, ARoundThatForksIsTheLastInTheChild) {
    if (kIsSanitized) GTEST_SKIP() << "at the child's end, sanitizers ask for threads that only the parent has";
    zo::ServiceThread thread(g_log);
    std::atomic<int> status{-1};
    std::atomic<bool> isChild{false};
    thread.Start([&]() -> milliseconds {
        if (isChild) _exit(1);  // another round
        const pid_t child = fork();
        isChild = child == 0;
        if (isChild) return milliseconds(0);
        int result = -1;
        waitpid(child, &result, 0);
        status = WIFEXITED(result) ? WEXITSTATUS(result) : 100;
        return hours(1);
    });

    EXPECT_TRUE(WaitFor([&] { return status != -1; }));
    EXPECT_EQ(0, status);  // that of a process whose last thread has ended
}

TEST_F(ServiceThreadTest, InAForkedChildItIsNotThereAndCanBeStartedAnew) {
    Blocking blocking;
    zo::ServiceThread thread(g_log);
    thread.Start(blocking.Round());
    ASSERT_TRUE(blocking.AwaitInside());
    EXPECT_EQ(0, test::InForkedChild([&] {
                  thread.Wake();
                  if (!thread.Stopping()) return false;
                  thread.Stop();
                  if (!kChildMayStartThreads) return true;
                  std::atomic<int> rounds{0};
                  thread.Start([&]() -> milliseconds {
                      ++rounds;
                      return hours(1);
                  });
                  const bool works = WaitFor([&] { return rounds == 1; });
                  thread.Stop();
                  return works;
              }));
    blocking.Release();
    thread.Stop();
}

TEST_F(ServiceThreadTest, MayBeDestroyedInAForkedChildWhateverItsThreadWasDoing) {
    constexpr int kForks = 50;
    auto thread = std::make_unique<zo::ServiceThread>(g_log);
    thread->Start([] { return milliseconds(0); });
    for (int i = 0; i < kForks; ++i) {
        EXPECT_EQ(0, test::InForkedChild([&] {
                      thread.reset();
                      return true;
                  }));
    }
}

}  // namespace
