#include "src/platform/usegate.h"

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/elsewhere.h"
#include "support/wait.h"

namespace {

using NS_BUNDLEMGR1::UseGate;

UseGate g_gate;

class Counter {
public:
    Counter() { g_gate.Open(this); }
    ~Counter() { g_gate.Close(this); }
    // Called through pointers that may be out of date.
    static bool Next(Counter* counter) {
        const UseGate::Use use(g_gate, counter);
        if (!use) return false;
        ++counter->m_nLast;
        return true;
    }

private:
    std::atomic<int> m_nLast{0};
};

TEST(UseGateTest, LetsInToAnOpenObject) {
    Counter counter;

    EXPECT_TRUE(Counter::Next(&counter));
}

TEST(UseGateTest, TurnsAPointerAwayThatIsOutOfDate) {
    auto counter = std::make_unique<Counter>();
    Counter* const stale = counter.get();

    counter.reset();

    EXPECT_FALSE(Counter::Next(stale));
}

TEST(UseGateTest, KeepsObjectsApart) {
    const auto first = std::make_unique<Counter>();
    auto second = std::make_unique<Counter>();

    second.reset();

    EXPECT_TRUE(Counter::Next(first.get()));
}

TEST(UseGateTest, ClosesAnObjectThatWasNeverOpen) {
    int object = 0;
    const Counter other;
    const UseGate::Use inside(g_gate, &other);

    g_gate.Close(&object);  // does not wait for those inside

    EXPECT_TRUE(inside);
}

TEST(UseGateTest, WaitsForThoseInside) {
    auto counter = std::make_unique<Counter>();
    Counter* const seen = counter.get();
    std::atomic<bool> closing{false};
    std::atomic<bool> closed{false};
    std::thread closer;
    {
        const UseGate::Use use(g_gate, seen);
        closer = std::thread([&] {
            closing = true;
            counter.reset();
            closed = true;
        });
        // Shut for others at once, and not closed before this one is out.
        ASSERT_TRUE(test::WaitFor([&] { return closing && !UseGate::Use(g_gate, seen); }));
        EXPECT_FALSE(closed);
    }
    closer.join();

    EXPECT_TRUE(closed);
}

// Who comes and goes all the time must not keep an object from being closed.
TEST(UseGateTest, DoesNotWaitForThoseWhoCameLater) {
    const Counter other;
    auto counter = std::make_unique<Counter>();
    std::atomic<bool> stop{false};
    std::thread user([&] {
        auto stay = std::make_unique<UseGate::Use>(g_gate, &other);
        while (!stop) stay = std::make_unique<UseGate::Use>(g_gate, &other);  // in before it is out
    });

    const test::Elsewhere closing([&] { counter.reset(); });

    EXPECT_TRUE(closing.Finishes());
    stop = true;
    user.join();
}

TEST(UseGateTest, ClosesManyAtOnceUnderUse) {
    const Counter other;
    std::atomic<bool> stop{false};
    std::thread user([&] {
        while (!stop) UseGate::Use(g_gate, &other);
    });
    std::vector<std::thread> closers;
    for (int i = 0; i < 4; ++i) {
        closers.emplace_back([] {
            for (int n = 0; n < 500; ++n) {
                Counter counter;
                EXPECT_TRUE(Counter::Next(&counter));
            }
        });
    }
    for (std::thread& closer : closers) closer.join();
    stop = true;
    user.join();
}

TEST(UseGateTest, SurvivesThousandsOfEndsUnderUse) {
    constexpr int kEnds = 3000;
    constexpr int kThreads = 3;
    std::atomic<Counter*> current{nullptr};
    std::atomic<bool> stop{false};
    std::atomic<long> served{0};
    std::vector<std::thread> users;
    for (int i = 0; i < kThreads; ++i) {
        users.emplace_back([&] {
            while (!stop) served += Counter::Next(current) ? 1 : 0;
        });
    }

    for (int i = 0; i < kEnds; ++i) {
        const auto counter = std::make_unique<Counter>();
        current = counter.get();
        const long before = served;
        EXPECT_TRUE(i % 100 != 0 || test::WaitFor([&] { return served > before; }));
    }
    stop = true;
    for (std::thread& user : users) user.join();

    EXPECT_GT(served, 0);
}

TEST(UseGateTest, WaitsForNoThreadOfTheParentInAForkedChild) {
    auto counter = std::make_unique<Counter>();
    std::atomic<bool> inside{false};
    std::atomic<bool> leave{false};
    std::thread user([&] {
        const UseGate::Use use(g_gate, counter.get());
        inside = true;
        test::WaitFor([&] { return leave.load(); });
    });
    ASSERT_TRUE(test::WaitFor([&] { return inside.load(); }));

    g_gate.BeforeFork();
    const pid_t child = fork();
    if (child == 0) {
        g_gate.AfterForkInChild();
        alarm(30);
        g_gate.Close(counter.get());
        _exit(0);
    }
    g_gate.AfterForkInParent();
    int status = -1;
    waitpid(child, &status, 0);
    leave = true;
    user.join();

    EXPECT_EQ(0, status);
}

}  // namespace
