// Bundles and the host on several threads while a service is ended, and all at once.
#include <atomic>
#include <chrono>
#include <vector>

#include <gmock/gmock.h>

#include "integration/threadstest.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::AnyProxy;
using test::At;
using test::Elsewhere;
using test::HookedBundle;
using test::IsDone;
using test::IsInRepository;
using test::ThreadsTest;
using test::WaitFor;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// On one thread "a1" is removed, and does something in its fini once the host is in
/// FiniAllBundles, which needs the bundle that this thread holds.
class FiniTest : public ThreadsTest {
protected:
    void EndWhile(const std::function<void()>& inFini) {
        At("a1 fini", [inFini] {
            WaitFor([] { return Mgr().GetMgrPhase() == MGR_PHASE_FINI; });
            inFini();
            return 0;
        });
        const Elsewhere remover([this] { m_a.RemoveServiceObject("a1"); });
        ASSERT_TRUE(WaitFor([] { return IsDone("a1 fini"); }));
        const Elsewhere end([] { Mgr().FiniAllBundles(); });
        EXPECT_TRUE(remover.Finishes());
        EXPECT_TRUE(end.Finishes());
    }

    // Long enough for the host to wait for what this thread holds.
    static void Repeatedly(const std::function<void()>& action) {
        for (int i = 0; i < 300; ++i) action();
    }
};

TEST_F(FiniTest, ItMayAskForBundlesAndTheirInterfaces) {
    m_a.LoadAllServiceObjects();
    EndWhile([this] {
        Repeatedly([this] {
            EXPECT_EQ(&m_b, Mgr().GetBundle("fx_hooked_b"));
            EXPECT_EQ(nullptr, Mgr().GetBundle("unknown"));
            EXPECT_EQ(nullptr, Mgr().GetBundleInterface("fx_hooked_b"));
            std::list<BundleObject*> bundles;
            Mgr().GetBundlesInReverseOrder(bundles);
            EXPECT_THAT(bundles, ElementsAre(&m_b, &m_a));
        });
    });
}

TEST_F(FiniTest, ItMaySearchAllBundles) {
    m_a.LoadAllServiceObjects();
    m_b.LoadAllServiceObjects();
    EndWhile([] {
        Repeatedly([] {
            CheckIFBuf("b1")->clear();
            try {
                AnyProxy("b1").GetInterface();  // may have been ended meanwhile
            } catch (const InterfaceNotExistException&) {
            }
        });
    });
}

TEST_F(FiniTest, ItMaySearchWhileAnotherThreadDoes) {
    m_a.LoadAllServiceObjects();
    std::atomic<bool> isOver{false};
    const Elsewhere searcher([&isOver] {
        AnyProxy nobody("nobody", "fx_hooked_a");
        while (!isOver) EXPECT_THROW(nobody.GetInterface(), InterfaceNotExistException);
    });
    EndWhile([] {
        Repeatedly([] {
            EXPECT_THROW(AnyProxy("nobody").GetInterface(), InterfaceNotExistException);
            AnyProxy::GetNullInterface();
        });
    });
    isOver = true;
}

TEST_F(FiniTest, ItMayRemoveAServiceOfAnotherBundleWhileThatIsMade) {
    m_a.LoadAllServiceObjects();
    std::atomic<bool> isRemoving{false};
    At("b2 init", [&isRemoving] {
        WaitFor([&isRemoving] { return isRemoving.load(); });
        Repeatedly([] { Mgr().GetBundle("fx_hooked_a"); });
        return 0;
    });
    At("a1 fini", [&isRemoving] {
        WaitFor([] { return IsDone("b2 init") && Mgr().GetMgrPhase() == MGR_PHASE_FINI; });
        isRemoving = true;
        Mgr().GetBundle("fx_hooked_b")->RemoveServiceObject("b2");
        return 0;
    });
    const Elsewhere remover([this] { m_a.RemoveServiceObject("a1"); });
    ASSERT_TRUE(WaitFor([] { return IsDone("a1 fini"); }));
    const Elsewhere loader([this] { m_b.LoadAllServiceObjects(); });
    ASSERT_TRUE(WaitFor([] { return IsDone("b2 init"); }));

    const Elsewhere end([] { Mgr().FiniAllBundles(); });

    EXPECT_TRUE(remover.Finishes());
    EXPECT_TRUE(loader.Finishes());
    EXPECT_TRUE(end.Finishes());
    EXPECT_FALSE(IsInRepository("b2"));
}

TEST_F(FiniTest, TwoMayRemoveServicesOfEachOthersBundles) {
    for (int round = 0; round < 50; ++round) {
        Mgr().SetMgrPhase(MGR_PHASE_INIT);
        m_a.LoadAllServiceObjects();
        m_b.LoadAllServiceObjects();
        std::atomic<int> ending{0};
        const auto meet = [&ending] {
            ++ending;
            WaitFor([&ending] { return ending == 2; });
        };
        At("a1 fini", [this, meet] {
            meet();
            m_b.RemoveServiceObject("b2");
            return 0;
        });
        At("b1 fini", [this, meet] {
            meet();
            m_a.RemoveServiceObject("a2");
            return 0;
        });

        const Elsewhere first([this] { m_a.RemoveServiceObject("a1"); });
        const Elsewhere second([this] { m_b.RemoveServiceObject("b1"); });

        EXPECT_TRUE(first.Finishes());
        EXPECT_TRUE(second.Finishes());
        std::map<std::string, ServiceObjectBase*> left;
        m_a.GetAllServiceObjects(left);
        m_b.GetAllServiceObjects(left);
        EXPECT_THAT(left, IsEmpty());
    }
}

TEST_F(FiniTest, AnEndThatWaitsForTheConfiguratorIsOverBeforeTheBundleIsUnloaded) {
    m_a.LoadAllServiceObjects();
    std::atomic<bool> goOn{false};
    std::atomic<bool> isLeaving{false};
    At("b1 init", [&goOn] { return WaitFor([&goOn] { return goOn.load(); }) ? 0 : 1; });
    At("a1 fini", [this, &isLeaving] {
        WaitFor([] { return IsDone("b1 init"); });
        isLeaving = true;
        m_a.RemoveServiceObject("a2");  // waits for the configurator, and lets go of the bundle
        return 0;
    });
    const Elsewhere remover([this] { m_a.RemoveServiceObject("a1"); });
    ASSERT_TRUE(WaitFor([] { return IsDone("a1 fini"); }));
    const Elsewhere loader([this] { m_b.LoadAllServiceObjects(); });
    ASSERT_TRUE(WaitFor([&isLeaving] { return isLeaving.load(); }));
    const Elsewhere again([this] { m_a.RemoveServiceObject("a1"); });
    const Elsewhere unloader([this] { m_a.UnLoadAllServiceObjects(); });

    EXPECT_FALSE(unloader.Finishes(std::chrono::milliseconds(20)));
    goOn = true;

    EXPECT_TRUE(unloader.Finishes());
    EXPECT_TRUE(again.Finishes());
    EXPECT_TRUE(IsDone("a1 dtor"));
    EXPECT_TRUE(IsDone("a2 dtor"));
    EXPECT_TRUE(remover.Finishes());
    EXPECT_TRUE(loader.Finishes());
    EXPECT_THAT(Log(), HasSubstr("Error: Remove service a1 failed! Service not found!\n"));
}

TEST_F(ThreadsTest, EverythingMayHappenAtOnce) {
    const auto ask = [] {
        Mgr().GetBundle("fx_hooked_b");
        try {
            AnyProxy("b1").GetInterface();
        } catch (const InterfaceNotExistException&) {
        }
        return 0;
    };
    for (const char* const step : {"a1 init", "a1 fini", "a1 exit", "b1 init", "b1 fini", "b1 exit", "a2 fini"}) {
        At(step, ask);
    }
    // A name must be free before it is loaded again.
    const auto reload = [](HookedBundle& bundle, const char* first, const char* second) {
        bundle.RemoveServiceObject(first);
        bundle.RemoveServiceObject(second);
        bundle.LoadAllServiceObjects();
    };
    const std::vector<std::function<void()>> actions = {
        [&] { reload(m_a, "a1", "a2"); },
        [&] { reload(m_b, "b1", "b2"); },
        [this] { m_a.RemoveServiceObject("a1"); },
        [this] { m_b.RemoveServiceObject("b1"); },
        [this] { m_a.WaitThreadExit(); },
        [this] { m_b.UnLoadAllServiceObjects(); },
        [this] { m_b.RemoveServiceObject("b2"); },
        [this] { m_a.RemoveServiceObject("a2"); },
        [ask] { ask(); },
    };
    std::list<Elsewhere> threads;
    for (const std::function<void()>& action : actions) {
        threads.emplace_back([&action] {
            for (int round = 0; round < 40; ++round) action();
        });
    }
    for (const Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
