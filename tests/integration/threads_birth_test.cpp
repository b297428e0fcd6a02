// Bundles and the host on several threads while a service is made.
#include <atomic>
#include <cstddef>

#include <gmock/gmock.h>

#include "integration/threadstest.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::AnyProxy;
using test::At;
using test::CanBeDoneElsewhere;
using test::Done;
using test::Elsewhere;
using test::IsDone;
using test::IsInRepository;
using test::ThreadsTest;
using test::WaitFor;
using testing::HasSubstr;

TEST_F(ThreadsTest, AnInitThatWaitsToBeToldIsTold) {
    std::atomic<bool> told{false};
    At("a1 init", [&told] { return WaitFor([&told] { return told.load(); }) ? 0 : 1; });
    At("a1 exit", [&told] {
        told = true;
        return 0;
    });
    int result = -99;
    const Elsewhere loader([&] { result = m_a.LoadAllServiceObjects(); });
    ASSERT_TRUE(WaitFor([] { return IsDone("a1 init"); }));

    EXPECT_TRUE(CanBeDoneElsewhere([this] { m_a.WaitThreadExit(); }));

    EXPECT_TRUE(loader.Finishes());
    EXPECT_EQ(0, result);
    EXPECT_THAT(Log(), HasSubstr("\n===== Begin to Exit Threads of -[ fx_hooked_a -- a1 ] =====\n"));
}

TEST_F(ThreadsTest, AServiceIsNotDestroyedWhileItIsToldToEndItsThreads) {
    for (const int result : {-1, 3}) {
        for (int round = 0; round < 50; ++round) {
            std::atomic<bool> told{false};
            At("a1 init", [&told, result] {
                WaitFor([&told] { return told.load(); });
                return result;
            });
            At("a1 exit", [&told] {
                told = true;
                return 0;
            });
            const std::size_t before = Done().size();
            const Elsewhere loader([&] { m_a.LoadAllServiceObjects(); });
            ASSERT_TRUE(WaitFor([before] { return Done().size() >= before + 2; }));

            m_a.WaitThreadExit();

            EXPECT_TRUE(loader.Finishes());
            EXPECT_FALSE(IsInRepository("a1"));
        }
    }
}

TEST_F(ThreadsTest, AServiceThatIsToldMayRemoveAnotherWhileItFails) {
    std::atomic<bool> told{false};
    At("a2 init", [&told] { return WaitFor([&told] { return told.load(); }) ? -1 : 0; });
    At("a2 exit", [this, &told] {
        told = true;
        // The configurator is through with it, and has not waited for this call.
        EXPECT_TRUE(WaitFor([this] { return Log().find("Init Failed -[ a2 ]") != std::string::npos; }));
        m_a.RemoveServiceObject("a1");
        return 0;
    });
    const Elsewhere loader([this] { m_a.LoadAllServiceObjects(); });
    ASSERT_TRUE(WaitFor([] { return IsDone("a2 init"); }));

    EXPECT_TRUE(CanBeDoneElsewhere([this] { m_a.WaitThreadExit(); }));

    EXPECT_TRUE(loader.Finishes());
    EXPECT_TRUE(IsDone("a1 dtor"));
    EXPECT_TRUE(IsDone("a2 dtor"));
}

TEST_F(ThreadsTest, AServiceThatInitialisesBundlesDoesNotWaitForAnotherThreadThatDoes) {
    std::atomic<bool> initialising{false};
    std::atomic<bool> goOn{false};
    m_b.onInit = [&] {
        initialising = true;
        EXPECT_TRUE(WaitFor([&] { return goOn.load(); }));
    };
    int result = 0;
    At("a1 init", [&] {
        EXPECT_TRUE(WaitFor([&] { return initialising.load(); }));
        goOn = true;
        result = Mgr().InitAllBundles();
        return 0;
    });
    m_a.SetState(BUNDLE_STATE_INITED);
    const Elsewhere loader([this] { m_a.LoadAllServiceObjects(); });
    ASSERT_TRUE(WaitFor([] { return IsDone("a1 init") || IsDone("a1 ctor"); }));

    EXPECT_TRUE(CanBeDoneElsewhere([] { EXPECT_EQ(0, Mgr().InitAllBundles()); }));

    EXPECT_TRUE(loader.Finishes());
    EXPECT_EQ(-1, result);
}

TEST_F(ThreadsTest, AServiceThatIsStillBeingConstructedIsNotAsked) {
    std::atomic<bool> goOn{false};
    At("a1 ctor", [&goOn] { return WaitFor([&goOn] { return goOn.load(); }) ? 0 : 1; });
    const Elsewhere loader([this] { m_a.LoadAllServiceObjects(); });
    ASSERT_TRUE(WaitFor([] { return IsDone("a1 ctor"); }));

    m_a.WaitThreadExit();

    EXPECT_FALSE(IsDone("a1 exit"));
    goOn = true;
    EXPECT_TRUE(loader.Finishes());
}

TEST_F(ThreadsTest, AnInterfaceIsPrivateUntilItsInitHasReturned) {
    Serve("a", "a1");
    std::atomic<bool> goOn{false};
    At("a1 init", [&goOn] { return WaitFor([&goOn] { return goOn.load(); }) ? 0 : 1; });
    const Elsewhere loader([this] { m_a.LoadAllServiceObjects(); });
    ASSERT_TRUE(WaitFor([] { return IsDone("a1 init"); }));
    EXPECT_TRUE(CanBeDoneElsewhere([] { EXPECT_THROW(AnyProxy("a1").GetInterface(), InterfaceNotExistException); }));

    goOn = true;

    EXPECT_TRUE(loader.Finishes());
    EXPECT_EQ("greeter", AnyProxy("a1")->GetDescription());
}

TEST_F(ThreadsTest, AnUnknownServiceIsReportedAtOnceWhateverTheConfiguratorDoes) {
    std::atomic<bool> goOn{false};
    At("a1 init", [&goOn] { return WaitFor([&goOn] { return goOn.load(); }) ? 0 : 1; });
    const Elsewhere loader([this] { m_a.LoadAllServiceObjects(); });
    ASSERT_TRUE(WaitFor([] { return IsDone("a1 init"); }));

    EXPECT_TRUE(CanBeDoneElsewhere([this] { m_b.RemoveServiceObject("unknown"); }));
    EXPECT_TRUE(CanBeDoneElsewhere([this] { m_a.RemoveServiceObject("unknown"); }));
    EXPECT_TRUE(CanBeDoneElsewhere([this] { m_b.UnLoadAllServiceObjects(); }));  // has none, loads none

    goOn = true;
    EXPECT_TRUE(loader.Finishes());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
