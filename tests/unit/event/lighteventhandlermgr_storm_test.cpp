// Many events from many threads.
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

#include "lighteventhandlermgrtest.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CountedParam;
using test::Handler;
using test::LightEventMgrTest;
using test::WaitFor;

struct NumberedParam : LightEventParam {
    NumberedParam(int poster_, int number_, std::atomic<int>& deletions_)
        : LightEventParam(true), poster(poster_), number(number_), deletions(deletions_) {}
    ~NumberedParam() override { ++deletions; }

    const int poster;
    const int number;
    std::atomic<int>& deletions;
};

TEST_F(LightEventMgrTest, EightPostersWithRegistrationChangesMeanwhile) {
    constexpr int kPosters = 8;
    constexpr int kEvents = 2000;
    std::atomic<int> deletions{0};
    std::atomic<int> inHandlers{0};
    std::atomic<int> overlaps{0};
    std::atomic<int> disorders{0};
    std::atomic<int> calls{0};
    std::vector<int> last(kPosters, -1);  // the worker's alone
    Handler checking([&](int, LightEventParam* param) {
        if (++inHandlers != 1) ++overlaps;
        const auto* const numbered = static_cast<NumberedParam*>(param);
        int& before = last[static_cast<std::size_t>(numbered->poster)];
        if (numbered->number != before + 1) ++disorders;
        before = numbered->number;
        ++calls;
        --inHandlers;
    });
    std::unique_ptr<Handler> leaving;
    leaving = std::make_unique<Handler>(
        [&](int eventId, LightEventParam*) { Mgr().UnRegisterHandler(eventId, leaving.get()); });
    Handler throwing([](int, LightEventParam*) { throw std::runtime_error("storm"); });
    Mgr().RegisterHandler(1, &checking);
    ASSERT_EQ(1, Mgr().Init());

    std::atomic<bool> posting{true};
    std::vector<std::thread> changers;
    for (int i = 0; i < 2; ++i) {
        changers.emplace_back([&] {
            while (posting) {
                Mgr().RegisterHandler(1, leaving.get());
                Mgr().RegisterHandler(1, &throwing);  // behind the one that checks
                Mgr().UnRegisterHandler(1, &throwing);
                static_cast<void>(Mgr().find(1));
                Mgr().UnRegisterHandler(1, leaving.get());
            }
        });
    }
    std::vector<std::thread> posters;
    for (int poster = 0; poster < kPosters; ++poster) {
        posters.emplace_back([&, poster] {
            for (int number = 0; number < kEvents; ++number) {
                Mgr().Push_Msg(1, new NumberedParam(poster, number, deletions), number);
            }
        });
    }
    for (std::thread& thread : posters) thread.join();
    posting = false;
    for (std::thread& thread : changers) thread.join();
    WaitUntilDispatched();

    EXPECT_EQ(kPosters * kEvents, calls);
    EXPECT_EQ(kPosters * kEvents, deletions);
    EXPECT_EQ(0, overlaps);
    EXPECT_EQ(0, disorders);
}

TEST_F(LightEventMgrTest, FiniInAStormDeletesNoParameterTwice) {
    constexpr std::size_t kPosters = 8;
    constexpr std::size_t kEvents = 2000;
    struct TrackedParam : LightEventParam {
        explicit TrackedParam(std::atomic<int>& deletions_) : LightEventParam(true), deletions(deletions_) {}
        ~TrackedParam() override { ++deletions; }
        std::atomic<int>& deletions;
    };
    std::vector<std::atomic<int>> deletions(kPosters * kEvents);
    std::vector<TrackedParam*> params(kPosters * kEvents);
    for (std::size_t i = 0; i < params.size(); ++i) params[i] = new TrackedParam(deletions[i]);
    std::atomic<int> calls{0};
    Handler counting([&](int, LightEventParam*) { ++calls; });
    Mgr().RegisterHandler(1, &counting);
    ASSERT_EQ(1, Mgr().Init());

    std::vector<std::thread> posters;
    for (std::size_t poster = 0; poster < kPosters; ++poster) {
        posters.emplace_back([&, poster] {
            for (std::size_t i = 0; i < kEvents; ++i) Mgr().Push_Msg(1, params[poster * kEvents + i], 0);
        });
    }
    ASSERT_TRUE(WaitFor([&] { return calls > 100; }));
    Mgr().Fini();
    for (std::thread& thread : posters) thread.join();

    // What was dispatched has been deleted, what was dropped or refused has not.
    int deleted = 0;
    for (std::size_t i = 0; i < params.size(); ++i) {
        ASSERT_LE(deletions[i], 1);
        deleted += deletions[i];
        if (deletions[i] == 0) delete params[i];
    }
    EXPECT_EQ(calls, deleted);
}

TEST_F(LightEventMgrTest, LivesAndDeathsInARow) {
    std::atomic<int> deletions{0};
    int posted = 0;
    for (int life = 0; life < 50; ++life) {
        std::atomic<int> calls{0};
        Handler logging([&](int, LightEventParam*) {
            ProxyNamed("Lives")->Write(LOG_LEVEL_INFO, "");
            if (++calls == 3) Mgr().ExitThreads();
        });
        Mgr().RegisterHandler(1, &logging);
        for (int i = 0; i < 3; ++i, ++posted) Mgr().Push_Msg(1, new CountedParam(true, deletions), 0);
        ASSERT_EQ(1, Mgr().Init());
        ASSERT_TRUE(WaitFor([&] { return calls == 3; }));
        LightEventMgr::Destroy();
    }
    EXPECT_EQ(150, posted);
    EXPECT_EQ(150, deletions);
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
