// Bundles, services and the host on several threads, in all the ways in which they can meet:
// while a service is made, while it is ended, and at the end of everything. Every wait has a
// deadline; a hang is a failure.
#include <dlfcn.h>

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <ace/Guard_T.h>
#include <ace/Service_Repository.h>
#include <gmock/gmock.h>

#include <bundlemgr/bundle.h>
#include <bundlemgr/event.h>

#include "support/elsewhere.h"
#include "unit/log/logtest.h"

namespace {

using Step = std::function<int()>;

/// What services do at a step, by "<service> <step>", and what they have done.
struct Script {
    std::mutex mutex;
    std::map<std::string, Step> steps;
    std::vector<std::string> done;
};

Script& TheScript() {
    static Script script;
    return script;
}

void At(const std::string& step, Step action) {
    const std::lock_guard<std::mutex> guard(TheScript().mutex);
    TheScript().steps[step] = std::move(action);
}

std::vector<std::string> Done() {
    const std::lock_guard<std::mutex> guard(TheScript().mutex);
    return TheScript().done;
}

bool IsDone(const std::string& step) {
    const std::vector<std::string> done = Done();
    return std::find(done.begin(), done.end(), step) != done.end();
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int fx_step(const char* service, const char* step) {
    const std::string name = std::string(service) + " " + step;
    Step action;
    {
        const std::lock_guard<std::mutex> guard(TheScript().mutex);
        TheScript().done.push_back(name);
        const auto found = TheScript().steps.find(name);
        if (found != TheScript().steps.end()) action = found->second;
    }
    return action ? action() : 0;
}

namespace NS_BUNDLEMGR1 {
namespace {

using test::CanBeDoneElsewhere;
using test::Elsewhere;
using test::WaitFor;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using AnyProxy = ServiceInterfaceProxy<ServiceInterface>;

class HookedBundle : public BundleObject {
public:
    explicit HookedBundle(std::string name) : m_name(std::move(name)) {}
    std::string GetName() override { return m_name; }
    int GetBundleOrder() override { return 0; }
    void SetInterface() override {}
    int Init() override {
        if (onInit) onInit();
        const int result = LoadAllServiceObjects();
        if (afterLoading) afterLoading();
        return result != 0 ? result : BundleObject::Init();
    }
    void Fini() override {
        if (onFini) onFini();
        UnLoadAllServiceObjects();
        BundleObject::Fini();
    }

    std::function<void()> onInit;
    std::function<void()> afterLoading;
    std::function<void()> onFini;

private:
    const std::string m_name;
};

bool IsInRepository(const char* service) {
    return ACE_Service_Repository::instance()->find(service, nullptr, false) == 0;
}

/// Bundles "fx_hooked_a" and "fx_hooked_b", registered and configured, with two services each.
class ThreadsTest : public test::LogTest {
protected:
    ThreadsTest() : m_server("KORU_SERVER_PATH", m_dir.Path()) {
        m_dir.Write("nbi/present", "");
        m_dir.Write("etc/oss_cfg/nbi/conf/bundlemgr.cfg", "Bundle=fx_hooked_a\nBundle=fx_hooked_b\n");
        Mgr().LoadAllBundles();  // only for the names: these bundles have no libraries
        Mgr().RegisterBundle(&m_a);
        Mgr().RegisterBundle(&m_b);
        Serve("a", "a1", "a2");
        Serve("b", "b1", "b2");
    }
    ~ThreadsTest() override {
        for (HookedBundle* const bundle : {&m_a, &m_b}) bundle->UnLoadAllServiceObjects();
        LightEventMgr::Destroy();
    }

    static BundleMgr& Mgr() { return *BundleMgr::Instance(); }

    void Serve(const std::string& bundle, const std::string& first, const std::string& second = "") {
        std::string lines = "service=fx_hooked:" + first + "\n";
        if (!second.empty()) lines += "service=fx_hooked:" + second + "\n";
        m_dir.Write("etc/oss_cfg/nbi/conf/fx_hooked_" + bundle + "/svc.cfg", lines);
    }

    test::ScopedEnv m_server;
    HookedBundle m_a{"fx_hooked_a"};
    HookedBundle m_b{"fx_hooked_b"};
};

// ---- While a service is made ----------------------------------------------------------------------

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

// ---- Nothing starts after the end -------------------------------------------------------------------

TEST_F(ThreadsTest, ALoadingThatWaitedForItsTurnStartsNothingAfterTheEnd) {
    auto turn = std::make_unique<ACE_Guard<ACE_Recursive_Thread_Mutex>>(ACE_Service_Repository::instance()->lock());
    int result = 0;
    std::atomic<bool> isLoading{false};
    const Elsewhere loader([&] {
        isLoading = true;
        result = m_a.LoadAllServiceObjects();
    });
    ASSERT_TRUE(WaitFor([&] { return isLoading.load(); }));
    const Elsewhere end([] { Mgr().FiniAllBundles(); });
    ASSERT_TRUE(WaitFor([] { return Mgr().GetMgrPhase() == MGR_PHASE_FINI; }));

    turn.reset();

    EXPECT_TRUE(loader.Finishes());
    EXPECT_TRUE(end.Finishes());
    EXPECT_EQ(-1, result);
    EXPECT_THAT(Done(), IsEmpty());
    EXPECT_THAT(Log(), Not(HasSubstr("Init Failed")));
    EXPECT_THAT(Log(), Not(HasSubstr("Init Service")));
}

TEST_F(ThreadsTest, NoServiceIsLeftWhenBundlesLoadOnThreadsOfTheirOwn) {
    for (int round = 0; round < 200; ++round) {
        m_a.SetState(BUNDLE_STATE_LOADED);
        m_b.SetState(BUNDLE_STATE_LOADED);
        Mgr().SetMgrPhase(MGR_PHASE_INIT);
        std::atomic<int> ready{0};
        std::list<Elsewhere> loaders;
        for (HookedBundle* const bundle : {&m_a, &m_b}) {
            loaders.emplace_back([bundle, &ready] {
                ++ready;
                bundle->LoadAllServiceObjects();
            });
        }
        WaitFor([&ready] { return ready == 2; });
        const std::size_t steps = static_cast<std::size_t>(round % 10);
        WaitFor([steps] { return Done().size() >= steps; }, std::chrono::milliseconds(5));

        ASSERT_TRUE(CanBeDoneElsewhere([] { Mgr().FiniAllBundles(); }));
        for (const Elsewhere& loader : loaders) ASSERT_TRUE(loader.Finishes());

        for (const char* const service : {"a1", "a2", "b1", "b2"}) ASSERT_FALSE(IsInRepository(service)) << round;
        for (const char* const service : {"a1", "a2", "b1", "b2"}) {
            (service[0] == 'a' ? m_a : m_b).RemoveServiceObject(service);  // the names stay in the table, as ever
        }
        const std::lock_guard<std::mutex> guard(TheScript().mutex);
        TheScript().done.clear();
    }
    EXPECT_THAT(Log(), Not(HasSubstr("Init Failed")));
}

TEST_F(ThreadsTest, AnInitialisationThatMeetsTheEndStopsAndSaysSo) {
    At("a1 init", [] { return WaitFor([] { return Mgr().GetMgrPhase() == MGR_PHASE_FINI; }) ? 0 : 1; });
    int result = 0;
    const Elsewhere init([&] { result = Mgr().InitAllBundles(); });
    ASSERT_TRUE(WaitFor([] { return IsDone("a1 init"); }));

    EXPECT_TRUE(CanBeDoneElsewhere([] { Mgr().FiniAllBundles(); }));

    EXPECT_TRUE(init.Finishes());
    EXPECT_EQ(-1, result);
    EXPECT_THAT(Done(), ElementsAre("a1 ctor", "a1 init", "a1 fini", "a1 dtor"));
    EXPECT_THAT(Log(), Not(HasSubstr("Init Failed")));
    EXPECT_THAT(Log(), Not(HasSubstr("Init Bundle --- [ fx_hooked_b ]")));
}

TEST_F(ThreadsTest, AnInitialisationDoesNotBeginWhileTheEndIsUnderWay) {
    std::atomic<bool> isEnding{false};
    std::atomic<bool> goOn{false};
    m_a.onFini = [&] {
        isEnding = true;
        WaitFor([&goOn] { return goOn.load(); });
    };
    const Elsewhere end([] { Mgr().FiniAllBundles(); });
    ASSERT_TRUE(WaitFor([&] { return isEnding.load(); }));

    EXPECT_TRUE(CanBeDoneElsewhere([] { EXPECT_EQ(-1, Mgr().InitAllBundles()); }));

    EXPECT_EQ(MGR_PHASE_FINI, Mgr().GetMgrPhase());
    goOn = true;
    EXPECT_TRUE(end.Finishes());
    EXPECT_THAT(Done(), IsEmpty());
}

TEST_F(ThreadsTest, AnInitialisationThatIsOverWhenTheEndComesSaysSo) {
    At("b2 init", [] { return WaitFor([] { return Mgr().GetMgrPhase() == MGR_PHASE_FINI; }) ? 0 : 1; });
    int result = 0;
    const Elsewhere init([&] { result = Mgr().InitAllBundles(); });
    ASSERT_TRUE(WaitFor([] { return IsDone("b2 init"); }));

    Mgr().FiniAllBundles();

    EXPECT_TRUE(init.Finishes());
    EXPECT_EQ(-1, result);
}

TEST_F(ThreadsTest, TwoInitialisationsDoNotInitialiseABundleTwice) {
    std::atomic<bool> goOn{false};
    At("b1 init", [&goOn] { return WaitFor([&goOn] { return goOn.load(); }) ? 0 : 1; });
    const Elsewhere loader([this] { m_b.LoadAllServiceObjects(); });  // has the configurator
    ASSERT_TRUE(WaitFor([] { return IsDone("b1 init"); }));
    std::atomic<int> inits{0};
    m_a.onInit = [&inits] { ++inits; };
    m_dir.Write("etc/oss_cfg/nbi/conf/fx_hooked_b/svc.cfg", "");
    const Elsewhere first([] { Mgr().InitAllBundles(); });
    ASSERT_TRUE(WaitFor([&inits] { return inits == 1; }));
    const Elsewhere second([] { Mgr().InitAllBundles(); });

    EXPECT_FALSE(second.Finishes(std::chrono::milliseconds(20)));
    goOn = true;

    EXPECT_TRUE(loader.Finishes());
    EXPECT_TRUE(first.Finishes());
    EXPECT_TRUE(second.Finishes());
    EXPECT_EQ(1, inits);
}

TEST_F(ThreadsTest, ABundleIsNotFinalisedBeforeItsInitHasStopped) {
    std::atomic<bool> goOn{false};
    At("b1 init", [&goOn] { return WaitFor([&goOn] { return goOn.load(); }) ? 0 : 1; });
    const Elsewhere loader([this] { m_b.LoadAllServiceObjects(); });  // has the configurator
    ASSERT_TRUE(WaitFor([] { return IsDone("b1 init"); }));
    std::atomic<bool> inInit{false};
    std::atomic<bool> overtook{false};
    m_a.onInit = [&inInit] { inInit = true; };
    m_a.afterLoading = [&inInit] { inInit = false; };
    m_a.onFini = [&inInit, &overtook] { overtook = inInit.load(); };
    int result = 0;
    const Elsewhere init([&] { result = Mgr().InitAllBundles(); });
    ASSERT_TRUE(WaitFor([&inInit] { return inInit.load(); }));
    const Elsewhere end([] { Mgr().FiniAllBundles(); });

    EXPECT_FALSE(end.Finishes(std::chrono::milliseconds(20)));
    goOn = true;

    EXPECT_TRUE(loader.Finishes());
    EXPECT_TRUE(init.Finishes());
    EXPECT_TRUE(end.Finishes());
    EXPECT_EQ(-1, result);
    EXPECT_FALSE(overtook);
}

// ---- While a service is ended ---------------------------------------------------------------------------

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

// ---- All at once ---------------------------------------------------------------------------------------------

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
