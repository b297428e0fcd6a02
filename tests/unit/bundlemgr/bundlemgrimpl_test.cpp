#include "src/bundlemgr/bundlemgrimpl.h"

#include <climits>
#include <csignal>
#include <optional>
#include <stdexcept>

#include <gmock/gmock.h>

#include <ace/Guard_T.h>
#include <ace/Static_Object_Lock.h>

#include <bundlemgr/base.h>
#include <bundlemgr/bundle.h>

#include "support/capture.h"
#include "support/elsewhere.h"
#include "support/slot.h"
#include "unit/log/logtest.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CanBeDoneElsewhere;
using test::Elsewhere;
using test::Slot;
using test::StdoutOf;
using test::WaitFor;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;

using Trace = std::vector<std::string>;
using StaticGuard = ACE_Guard<ACE_Recursive_Thread_Mutex>;

class NamedInterface : public ServiceInterface {
public:
    std::string GetDescription() override { return "named"; }
    void* GetImplementation() override { return this; }
};

/// A bundle that notes what is asked of it.
class FakeBundle : public BundleObject {
public:
    FakeBundle(Trace& trace, std::string name, int order = 0, int initResult = 0)
        : m_trace(trace), m_name(std::move(name)), m_order(order), m_initResult(initResult) {}

    std::string GetName() override { return m_name; }
    int GetBundleOrder() override { return m_order; }
    void SetInterface() override { m_pInterface = &m_interface; }
    int Init() override {
        Note("init");
        if (onInit) onInit();
        if (m_initResult == 0) BundleObject::Init();
        return m_initResult;
    }
    void Fini() override {
        Note("fini");
        if (onFini) onFini();
        BundleObject::Fini();
    }
    void WaitThreadExit() override {
        Note("wait");
        if (onWait) onWait();
    }

    std::function<void()> onInit;
    std::function<void()> onFini;
    std::function<void()> onWait;

private:
    void Note(const std::string& what) { m_trace.push_back(what + " " + m_name); }

    Trace& m_trace;
    const std::string m_name;
    const int m_order;
    const int m_initResult;
    NamedInterface m_interface;
};

class BundleMgrTest : public test::LogTest {
protected:
    BundleMgrTest() : m_noServer("KORU_SERVER_PATH") {}

    BundleMgrImpl& Mgr() { return *static_cast<BundleMgrImpl*>(BundleMgr::Instance()); }

    FakeBundle& Add(const std::string& name, int order = 0, int initResult = 0) {
        m_bundles.push_back(std::make_unique<FakeBundle>(m_trace, name, order, initResult));
        Mgr().RegisterBundle(m_bundles.back().get());
        return *m_bundles.back();
    }

    /// Writes bundlemgr.cfg and has it read.
    void Configure(const std::string& content) {
        const char* noCoreBundles[] = {nullptr};
        std::list<std::string> names;
        WriteConfiguration(content);
        Mgr().GetLoadBundles(names, noCoreBundles);
    }

    void WriteConfiguration(const std::string& content) {
        m_server.emplace("KORU_SERVER_PATH", m_dir.Path());
        m_dir.Write("nbi/present", "");
        m_dir.Write("etc/oss_cfg/nbi/conf/bundlemgr.cfg", content);
    }

    std::string ConfigurationFile() const { return m_dir / "nbi/../etc/oss_cfg/nbi/conf/bundlemgr.cfg"; }

    std::list<BundleObject*> Reversed() {
        std::list<BundleObject*> bundles;
        Mgr().GetBundlesInReverseOrder(bundles);
        return bundles;
    }

    bool TableIsFree() {
        return CanBeDoneElsewhere([this] { Mgr().GetBundle("any"); });
    }

    /// The records that were written: "<level> <text>".
    Trace Reported() {
        Trace reported;
        for (const test::LogRecord& record : test::ParseLog(Log())) {
            EXPECT_THAT(record,
                        AllOf(Field(&test::LogRecord::bundle, "BundleMgr"), Field(&test::LogRecord::service, "Core")));
            if (record.file == "bundlemgrimpl") reported.push_back(std::to_string(record.level) + " " + record.text);
        }
        return reported;
    }

    test::ScopedEnv m_noServer;
    std::optional<test::ScopedEnv> m_server;
    Trace m_trace;
    std::vector<std::unique_ptr<FakeBundle>> m_bundles;
};

using BundleMgrDeathTest = BundleMgrTest;

// ---- Instance and Destroy ------------------------------------------------------------------

TEST_F(BundleMgrTest, ThreadsGetOneInstance) {
    std::vector<BundleMgr*> seen(8, nullptr);
    std::atomic<bool> go{false};
    {
        std::list<Elsewhere> threads;
        for (BundleMgr*& slot : seen) {
            threads.emplace_back([&go, &slot] {
                while (!go) std::this_thread::yield();
                slot = BundleMgr::Instance();
            });
        }
        go = true;
    }
    ASSERT_THAT(seen.front(), NotNull());
    EXPECT_THAT(seen, testing::Each(seen.front()));
}

TEST_F(BundleMgrTest, DestroyWithoutAnInstanceDoesNothing) {
    BundleMgr::Destroy();
    BundleMgr::Destroy();
}

TEST_F(BundleMgrTest, AfterDestroyInstanceMakesAFreshManager) {
    Add("a");
    Mgr().SetIntSetting(7);
    BundleMgr::Destroy();
    EXPECT_THAT(Mgr().GetBundle("a"), IsNull());
    EXPECT_EQ(1024, Mgr().GetIntSetting());
}

TEST_F(BundleMgrTest, DestroyLeavesTheBundles) {
    FakeBundle& bundle = Add("a");
    BundleMgr::Destroy();
    EXPECT_EQ("a", bundle.GetName());
    EXPECT_EQ(BUNDLE_STATE_LOADED, bundle.GetState());
}

TEST_F(BundleMgrTest, DestroyWaitsForTheStaticObjectLock) {
    Mgr();
    std::atomic<bool> destroyed{false};
    auto guard = std::make_unique<StaticGuard>(*ACE_Static_Object_Lock::instance());
    const Elsewhere destroying([&destroyed] {
        BundleMgr::Destroy();
        destroyed = true;
    });
    EXPECT_FALSE(destroying.Finishes(std::chrono::milliseconds(50)));
    EXPECT_FALSE(destroyed);
    guard.reset();
    EXPECT_TRUE(destroying.Finishes());
    EXPECT_TRUE(destroyed);
}

TEST_F(BundleMgrTest, DestroyFromSeveralThreadsDestroysOnce) {
    Mgr();
    std::atomic<bool> go{false};
    std::list<Elsewhere> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&go] {
            while (!go) std::this_thread::yield();
            BundleMgr::Destroy();
        });
    }
    go = true;
    for (const Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
}

// Notes which of its operations ran last.
class RecordingMgr : public BundleMgr {
public:
    ~RecordingMgr() noexcept(false) override {
        s_called = "~";
        if (s_throwing) throw std::runtime_error("the last bundle threw");
    }
    void RegisterBundle(BundleObject* pBundle) override { Called("RegisterBundle", pBundle); }
    int InitAllBundles() override { return Called("InitAllBundles"); }
    void WaitAllBundlesThreadExit() override { Called("WaitAllBundlesThreadExit"); }
    void FiniAllBundles() override { Called("FiniAllBundles"); }
    BundleObject* GetBundle(const std::string& name) override { return Found("GetBundle " + name); }
    BundleObject* LoadBundle(const std::string& name) override { return Found("LoadBundle " + name); }
    int LoadAllBundles() override { return Called("LoadAllBundles"); }
    void GetBundlesInReverseOrder(std::list<BundleObject*>& out) override {
        Called("GetBundlesInReverseOrder");
        out.push_back(m_found);
    }
    ServiceInterface* GetBundleInterface(const std::string& name) override {
        Called("GetBundleInterface " + name);
        return &m_interface;
    }
    LogProxyMgr* GetLogProxyMgr() override {
        Called("GetLogProxyMgr");
        return nullptr;
    }
    void SetIntSetting(const int& value) override { Called("SetIntSetting " + std::to_string(value)); }
    int GetIntSetting() override { return Called("GetIntSetting"); }
    int GetMgrPhase() override { return Called("GetMgrPhase"); }
    void SetMgrPhase(const int& phase) override { Called("SetMgrPhase " + std::to_string(phase)); }

    static void Become(BundleMgr* manager) { m_pInstance = manager; }

    static std::string s_called;
    static bool s_throwing;

private:
    int Called(const std::string& operation, const void* object = nullptr) {
        s_called = operation + (object == m_found ? " found" : "");
        return 42;
    }
    BundleObject* Found(const std::string& operation) {
        Called(operation);
        return m_found;
    }

    BundleObject* const m_found = reinterpret_cast<BundleObject*>(this);  // never looked into
    NamedInterface m_interface;
};

std::string RecordingMgr::s_called;
bool RecordingMgr::s_throwing = false;

TEST_F(BundleMgrTest, DestroyRunsTheDestructorOfWhateverTheInstanceIs) {
    RecordingMgr::Become(new RecordingMgr);
    BundleMgr::Destroy();
    EXPECT_EQ("~", RecordingMgr::s_called);
    EXPECT_NE(nullptr, dynamic_cast<BundleMgrImpl*>(BundleMgr::Instance()));
}

TEST_F(BundleMgrTest, DestroySwallowsAnException) {
    RecordingMgr::Become(new RecordingMgr);
    RecordingMgr::s_throwing = true;
    BundleMgr::Destroy();
    EXPECT_EQ("~", RecordingMgr::s_called);
    EXPECT_NE(nullptr, dynamic_cast<BundleMgrImpl*>(BundleMgr::Instance()));
    EXPECT_TRUE(TableIsFree());
    EXPECT_TRUE(CanBeDoneElsewhere([] { const StaticGuard guard(*ACE_Static_Object_Lock::instance()); }));
}

// ---- The order of the virtual operations, as a caller in another library sees it ------------

class BundleMgrSlotsTest : public testing::Test {
protected:
    std::string Called() { return std::exchange(RecordingMgr::s_called, std::string()); }

    const std::unique_ptr<BundleMgr> m_recording = std::make_unique<RecordingMgr>();
    BundleMgr* const m_mgr = m_recording.get();
    const std::string m_name = "a bundle of a name that is too long for the string object itself";
};

TEST_F(BundleMgrSlotsTest, DestructorsComeFirst) {
    alignas(RecordingMgr) unsigned char place[sizeof(RecordingMgr)];
    BundleMgr* const placed = new (place) RecordingMgr;
    Slot<void (*)(BundleMgr*)>(placed, 0)(placed);
    EXPECT_EQ("~", Called());

    BundleMgr* const allocated = new RecordingMgr;
    Slot<void (*)(BundleMgr*)>(allocated, 1)(allocated);  // frees it as well
    EXPECT_EQ("~", Called());
}

TEST_F(BundleMgrSlotsTest, LifeCycleOperationsFollow) {
    Slot<void (*)(BundleMgr*, BundleObject*)>(m_mgr, 2)(m_mgr, nullptr);
    EXPECT_EQ("RegisterBundle", Called());
    EXPECT_EQ(42, Slot<int (*)(BundleMgr*)>(m_mgr, 3)(m_mgr));
    EXPECT_EQ("InitAllBundles", Called());
    Slot<void (*)(BundleMgr*)>(m_mgr, 4)(m_mgr);
    EXPECT_EQ("WaitAllBundlesThreadExit", Called());
    Slot<void (*)(BundleMgr*)>(m_mgr, 5)(m_mgr);
    EXPECT_EQ("FiniAllBundles", Called());
}

TEST_F(BundleMgrSlotsTest, BundleOperationsFollow) {
    const void* const found = m_mgr;
    EXPECT_EQ(found, Slot<void* (*)(BundleMgr*, const std::string&)>(m_mgr, 6)(m_mgr, m_name));
    EXPECT_EQ("GetBundle " + m_name, Called());
    EXPECT_EQ(found, Slot<void* (*)(BundleMgr*, const std::string&)>(m_mgr, 7)(m_mgr, m_name));
    EXPECT_EQ("LoadBundle " + m_name, Called());
    EXPECT_EQ(42, Slot<int (*)(BundleMgr*)>(m_mgr, 8)(m_mgr));
    EXPECT_EQ("LoadAllBundles", Called());
    std::list<BundleObject*> bundles;
    Slot<void (*)(BundleMgr*, std::list<BundleObject*>&)>(m_mgr, 9)(m_mgr, bundles);
    EXPECT_EQ("GetBundlesInReverseOrder", Called());
    EXPECT_EQ(1U, bundles.size());
    EXPECT_EQ("named",
              Slot<ServiceInterface* (*)(BundleMgr*, const std::string&)>(m_mgr, 10)(m_mgr, m_name)->GetDescription());
    EXPECT_EQ("GetBundleInterface " + m_name, Called());
}

TEST_F(BundleMgrSlotsTest, SettingsComeLast) {
    EXPECT_THAT(Slot<LogProxyMgr* (*)(BundleMgr*)>(m_mgr, 11)(m_mgr), IsNull());
    EXPECT_EQ("GetLogProxyMgr", Called());
    const int five = 5;
    Slot<void (*)(BundleMgr*, const int&)>(m_mgr, 12)(m_mgr, five);
    EXPECT_EQ("SetIntSetting 5", Called());
    EXPECT_EQ(42, Slot<int (*)(BundleMgr*)>(m_mgr, 13)(m_mgr));
    EXPECT_EQ("GetIntSetting", Called());
    EXPECT_EQ(42, Slot<int (*)(BundleMgr*)>(m_mgr, 14)(m_mgr));
    EXPECT_EQ("GetMgrPhase", Called());
    Slot<void (*)(BundleMgr*, const int&)>(m_mgr, 15)(m_mgr, five);
    EXPECT_EQ("SetMgrPhase 5", Called());
}

// ---- Constants, settings and phase -----------------------------------------------------------

TEST_F(BundleMgrTest, StatesAndPhasesHaveTheirNumbers) {
    EXPECT_EQ(0, BUNDLE_STATE_LOADED);
    EXPECT_EQ(1, BUNDLE_STATE_INITED);
    EXPECT_EQ(2, BUNDLE_STATE_FINIED);
    EXPECT_EQ(1, MGR_PHASE_INIT);
    EXPECT_EQ(2, MGR_PHASE_FINI);
}

TEST_F(BundleMgrTest, AFreshManagerIsInItsInitPhase) {
    EXPECT_EQ(MGR_PHASE_INIT, Mgr().GetMgrPhase());
    EXPECT_EQ(1024, Mgr().GetIntSetting());
    EXPECT_THAT(Mgr().GetLogProxyMgr(), NotNull());
    EXPECT_EQ(Mgr().GetLogProxyMgr(), Mgr().GetLogProxyMgr());
    EXPECT_THAT(Reversed(), IsEmpty());
}

TEST_F(BundleMgrTest, SettingAndPhaseAreKept) {
    Mgr().SetIntSetting(-3);
    Mgr().SetMgrPhase(77);
    EXPECT_EQ(-3, Mgr().GetIntSetting());
    EXPECT_EQ(77, Mgr().GetMgrPhase());
}

TEST_F(BundleMgrTest, InitAndFiniSetThePhaseFirst) {
    FakeBundle& bundle = Add("a");
    int atInit = 0;
    int atFini = 0;
    bundle.onInit = [&] { atInit = Mgr().GetMgrPhase(); };
    bundle.onFini = [&] { atFini = Mgr().GetMgrPhase(); };
    Mgr().SetMgrPhase(MGR_PHASE_FINI);
    Mgr().InitAllBundles();
    Mgr().FiniAllBundles();
    EXPECT_EQ(MGR_PHASE_INIT, atInit);
    EXPECT_EQ(MGR_PHASE_FINI, atFini);
    EXPECT_EQ(MGR_PHASE_FINI, Mgr().GetMgrPhase());
}

// ---- RegisterBundle and look-up ----------------------------------------------------------------

TEST_F(BundleMgrTest, ARegisteredBundleIsFoundUnderItsName) {
    FakeBundle& bundle = Add("a");
    EXPECT_EQ(&bundle, Mgr().GetBundle("a"));
    EXPECT_THAT(Mgr().GetBundle("A"), IsNull());
    EXPECT_THAT(Mgr().GetBundle(""), IsNull());
}

TEST_F(BundleMgrDeathTest, ANullBundleEndsTheProcess) {
    EXPECT_EXIT(Mgr().RegisterBundle(nullptr), testing::KilledBySignal(SIGABRT),
                "ACE_ASSERT: file bundlemgrimpl, line [0-9]+ assertion failed for 'pBundle != 0'");
}

TEST_F(BundleMgrDeathTest, ASecondBundleOfANameEndsTheProcess) {
    FakeBundle& bundle = Add("a");
    EXPECT_EXIT(Mgr().RegisterBundle(&bundle), testing::KilledBySignal(SIGABRT),
                "ACE_ASSERT: file bundlemgrimpl, line [0-9]+ assertion failed for "
                "'m_mapBundleTable\\.find\\(strName\\) == m_mapBundleTable\\.end\\(\\)'");
}

TEST_F(BundleMgrDeathTest, ABundleWhoseNameHasANullEntryEndsTheProcess) {
    Configure("Bundle=late\n");
    EXPECT_THAT(Reversed(), ElementsAre(IsNull()));
    EXPECT_EXIT(Add("late"), testing::KilledBySignal(SIGABRT),
                "ACE_ASSERT: file bundlemgrimpl, line [0-9]+ assertion failed for "
                "'m_mapBundleTable\\.find\\(strName\\) == m_mapBundleTable\\.end\\(\\)'");
}

TEST_F(BundleMgrTest, ABundleThatIsGoneCountsAsOneThatNeverRegistered) {
    Add("a");
    FakeBundle& b = Add("b");
    Configure("Bundle=a\nBundle=b\n");
    m_bundles.front().reset();
    EXPECT_THAT(Mgr().GetBundle("a"), IsNull());
    EXPECT_THAT(Mgr().GetBundleInterface("a"), IsNull());
    EXPECT_THAT(Reversed(), ElementsAre(&b, IsNull()));
    EXPECT_EQ(0, Mgr().InitAllBundles());
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("init b", "fini b"));
    FakeBundle& successor = Add("a");
    EXPECT_EQ(&successor, Mgr().GetBundle("a"));
}

TEST_F(BundleMgrTest, ReverseOrderIsThatOfTheConfigurationFromItsEnd) {
    FakeBundle& a = Add("a");
    FakeBundle& b = Add("b");
    Add("not configured");
    Configure("Bundle=a\nBundle=b\nBundle=missing\nBundle=a\n");
    FakeBundle& first = Add("first");
    std::list<BundleObject*> bundles{&first};
    Mgr().GetBundlesInReverseOrder(bundles);
    EXPECT_THAT(bundles, ElementsAre(&first, &a, IsNull(), &b, &a));
}

TEST_F(BundleMgrTest, TheInterfaceOfABundleIsItsOwn) {
    FakeBundle& bundle = Add("a");
    EXPECT_THAT(Mgr().GetBundleInterface("a"), IsNull());
    bundle.SetInterface();
    EXPECT_EQ(bundle.GetInterface(), Mgr().GetBundleInterface("a"));
    EXPECT_EQ("named", Mgr().GetBundleInterface("a")->GetDescription());
}

TEST_F(BundleMgrTest, AnUnknownBundleHasNoInterface) {
    Configure("Bundle=missing\n");
    EXPECT_THAT(Mgr().GetBundleInterface("unknown"), IsNull());
    EXPECT_THAT(Reversed(), ElementsAre(IsNull()));
    EXPECT_THAT(Mgr().GetBundleInterface("missing"), IsNull());
}

// ---- GetLoadBundles ----------------------------------------------------------------------------

TEST_F(BundleMgrTest, CoreBundlesComeBeforeTheConfiguredOnes) {
    WriteConfiguration("Bundle=a\nOther=x\nBundle2=b\nBundle=a\n");
    const char* core[] = {"core2", "core1", nullptr};
    std::list<std::string> names{"forgotten"};
    const std::string printed = StdoutOf([&] { Mgr().GetLoadBundles(names, core); });
    EXPECT_THAT(names, ElementsAre("core2", "core1", "a", "b", "a"));
    EXPECT_EQ("cfg_file " + ConfigurationFile() + " \nm_strCfgFileName=" + ConfigurationFile() + " \n", printed);
}

TEST_F(BundleMgrTest, WithoutACoreBundleArrayThereIsNothingToLoad) {
    WriteConfiguration("Bundle=a\n");
    std::list<std::string> names{"forgotten"};
    EXPECT_EQ("in [BundleMgrImpl::GetLoadBundles] coreBundles is null",
              StdoutOf([&] { Mgr().GetLoadBundles(names, nullptr); }));
    EXPECT_THAT(names, IsEmpty());
    EXPECT_THAT(Reversed(), IsEmpty());
}

TEST_F(BundleMgrTest, WithoutAConfigurationDirectoryNothingIsRead) {
    const char* core[] = {"core", nullptr};
    std::list<std::string> names;
    EXPECT_EQ("", StdoutOf([&] { Mgr().GetLoadBundles(names, core); }));
    EXPECT_THAT(names, ElementsAre("core"));
}

TEST_F(BundleMgrTest, WhatWasConfiguredStaysWhileTheFileOrItsDirectoryIsMissing) {
    FakeBundle& bundle = Add("a");
    Configure("Bundle=a\n");
    std::filesystem::remove(m_dir / "etc/oss_cfg/nbi/conf/bundlemgr.cfg");
    const char* none[] = {nullptr};
    std::list<std::string> names;
    Mgr().GetLoadBundles(names, none);
    EXPECT_THAT(names, ElementsAre("a"));

    m_server.reset();
    Mgr().GetLoadBundles(names, none);
    EXPECT_THAT(names, ElementsAre("a"));
    EXPECT_THAT(Reversed(), ElementsAre(&bundle));
}

TEST_F(BundleMgrTest, TheConfigurationDirectoryIsTheOneThatWasSet) {
    WriteConfiguration("Bundle=a\n");
    m_dir.Write("etc/oss_cfg/nbi/other/bundlemgr.cfg", "Bundle=b\n");
    SetCfgDirPath("other");
    const char* none[] = {nullptr};
    std::list<std::string> names;
    Mgr().GetLoadBundles(names, none);
    SetCfgDirPath("conf");
    EXPECT_THAT(names, ElementsAre("b"));
}

// ---- LoadBundle and LoadAllBundles --------------------------------------------------------------

std::string MissingLibrary(const std::string& name) {
    return "1 Load library lib" + name + ".so failed. Error info:\n  lib" + name +
           ".so: cannot open shared object file: No such file or directory\n";
}

TEST_F(BundleMgrTest, AMissingLibraryIsReported) {
    BundleObject* loaded = &Add("other");
    const std::string printed = StdoutOf([&] { loaded = Mgr().LoadBundle("zo_test_missing"); });
    EXPECT_THAT(loaded, IsNull());
    EXPECT_THAT(Reported(), ElementsAre(MissingLibrary("zo_test_missing")));
    EXPECT_EQ("1 " + printed, MissingLibrary("zo_test_missing"));
    EXPECT_TRUE(TableIsFree());
}

TEST_F(BundleMgrTest, ABundleThatIsThereIsNotLoadedAgain) {
    FakeBundle& bundle = Add("a");
    EXPECT_EQ(&bundle, Mgr().LoadBundle("a"));
    EXPECT_THAT(Reported(), ElementsAre("1 Error: Bundles \xEF\xBC\x88"
                                        "a\xEF\xBC\x89 already loaded previously!\n"));
}

TEST_F(BundleMgrTest, ANullEntryCountsAsLoaded) {
    Configure("Bundle=zo_test_missing\n");
    EXPECT_THAT(Reversed(), ElementsAre(IsNull()));
    EXPECT_THAT(Mgr().LoadBundle("zo_test_missing"), IsNull());
    EXPECT_THAT(Reported(), ElementsAre("1 Error: Bundles \xEF\xBC\x88"
                                        "zo_test_missing\xEF\xBC\x89 already loaded previously!\n"));
}

TEST_F(BundleMgrTest, NothingConfiguredIsNothingToDo) {
    EXPECT_EQ(0, Mgr().LoadAllBundles());
    WriteConfiguration("");
    EXPECT_EQ(0, Mgr().LoadAllBundles());
    EXPECT_EQ(0, Mgr().InitAllBundles());
    Mgr().FiniAllBundles();
    EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(BundleMgrTest, EveryBundleThatFailsToLoadCounts) {
    WriteConfiguration("Bundle=zo_test_a\nBundle=zo_test_b\nBundle=zo_test_a\n");
    EXPECT_EQ(-3, Mgr().LoadAllBundles());
    const auto failed = [](const std::string& name) { return "1 Error: Load Bundle " + name + " failed!\n"; };
    EXPECT_THAT(Reported(), ElementsAre("3 Loading... zo_test_a\n", MissingLibrary("zo_test_a"), failed("zo_test_a"),
                                        "3 Loading... zo_test_b\n", MissingLibrary("zo_test_b"), failed("zo_test_b"),
                                        "3 Loading... zo_test_a\n", MissingLibrary("zo_test_a"), failed("zo_test_a")));
}

TEST_F(BundleMgrTest, LoadingForgetsTheBundlesOfBefore) {
    Add("a");
    EXPECT_EQ(0, Mgr().LoadAllBundles());
    EXPECT_THAT(Mgr().GetBundle("a"), IsNull());
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, IsEmpty());
}

// A manager whose bundles need no library.
class InProcessMgr : public BundleMgrImpl {
public:
    BundleObject* LoadBundle(const std::string& name) override {
        loaded.push_back(name);
        return name == "bad" ? nullptr : reinterpret_cast<BundleObject*>(this);
    }
    void GetBundlesInReverseOrder(std::list<BundleObject*>& out) override {
        for (BundleObject* const bundle : reversed) out.push_back(bundle);
    }
    Trace loaded;
    std::list<BundleObject*> reversed;
};

TEST_F(BundleMgrTest, LoadingGoesThroughTheVirtualOperation) {
    WriteConfiguration("Bundle=b\nBundle=bad\nBundle=a\nBundle=bad\nBundle=b\n");
    InProcessMgr manager;
    EXPECT_EQ(-2, manager.LoadAllBundles());
    EXPECT_THAT(manager.loaded, ElementsAre("b", "bad", "a", "bad", "b"));
}

// ---- InitAllBundles -----------------------------------------------------------------------------

TEST_F(BundleMgrTest, BundlesInitialiseByOrderAndThenByName) {
    Add("c", 5);
    Add("a", 1);
    Add("b", 5);
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, ElementsAre("init a", "init b", "init c"));
    EXPECT_THAT(Reported(), ElementsAre("3 \n========== Init Bundle --- [ a ] ==========\n",
                                        "3 \n========== Init Bundle --- [ b ] ==========\n",
                                        "3 \n========== Init Bundle --- [ c ] ==========\n"));
}

TEST_F(BundleMgrTest, CoreBundlesInitialiseFirst) {
    Add("a", INT_MIN);
    Add("zo_domain_bundle", 100);
    Add("zo_base_bundle", 200);
    Add("zo_core_bundle", -1);
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, ElementsAre("init zo_domain_bundle", "init zo_base_bundle", "init a", "init zo_core_bundle"));
}

TEST_F(BundleMgrTest, CoreBundlesOfOneOrderInitialiseByName) {
    Add("zo_domain_bundle", 1);
    Add("zo_base_bundle", 1);
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, ElementsAre("init zo_base_bundle", "init zo_domain_bundle"));
}

TEST_F(BundleMgrTest, AFailingCoreBundleStopsEverything) {
    FakeBundle& base = Add("zo_base_bundle", 1, 7);
    FakeBundle& domain = Add("zo_domain_bundle", 2);
    FakeBundle& other = Add("a");
    EXPECT_EQ(7, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, ElementsAre("init zo_base_bundle"));
    EXPECT_EQ(BUNDLE_STATE_LOADED, base.GetState());
    EXPECT_EQ(BUNDLE_STATE_LOADED, domain.GetState());
    EXPECT_EQ(BUNDLE_STATE_LOADED, other.GetState());
    EXPECT_THAT(Reported(), ElementsAre("3 \n========== Init Bundle --- [ zo_base_bundle ] ==========\n",
                                        "3 Error: Init Bundle zo_base_bundle failed! errcode=7\n"));
    EXPECT_TRUE(TableIsFree());
}

TEST_F(BundleMgrTest, AFailingBundleLeavesTheEarlierOnesInitialised) {
    FakeBundle& first = Add("a", 1);
    Add("b", 2, -9);
    FakeBundle& last = Add("c", 3);
    EXPECT_EQ(-9, Mgr().InitAllBundles());
    EXPECT_EQ(BUNDLE_STATE_INITED, first.GetState());
    EXPECT_EQ(BUNDLE_STATE_LOADED, last.GetState());
    EXPECT_THAT(m_trace, ElementsAre("init a", "init b"));
    EXPECT_EQ("3 Error: Init Bundle b failed! errcode=-9\n", Reported().back());
}

TEST_F(BundleMgrTest, OnlyLoadedBundlesInitialise) {
    Add("a");
    Add("zo_base_bundle").SetState(BUNDLE_STATE_FINIED);
    Add("b").SetState(-5);
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, ElementsAre("init a"));
    EXPECT_THAT(Reported(), ElementsAre("3 Error: Bundle zo_base_bundle is in state 2, Skip Init! \n",
                                        "3 Error: Bundle b is in state -5, Skip Init! \n",
                                        "3 \n========== Init Bundle --- [ a ] ==========\n",
                                        "3 Error: Bundle zo_base_bundle is in state 2, Skip Init! \n",
                                        "3 Error: Bundle a is in state 1, Skip Init! \n",
                                        "3 Error: Bundle b is in state -5, Skip Init! \n"));
}

TEST_F(BundleMgrTest, TheSecondGroupIsSelectedAfterTheFirstIsInitialised) {
    Add("zo_base_bundle").onInit = [this] { Add("made by base"); };
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, ElementsAre("init zo_base_bundle", "init made by base"));
}

TEST_F(BundleMgrTest, ABundleMayCallTheManagerWhileItInitialises) {
    FakeBundle& bundle = Add("a");
    BundleObject* found = nullptr;
    bundle.onInit = [&] {
        found = Mgr().GetBundle("a");
        Mgr().GetBundleInterface("a");
        Reversed();
    };
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_EQ(&bundle, found);
}

TEST_F(BundleMgrTest, OtherThreadsWaitForTheTableWhileABundleInitialisesButNotForThePhase) {
    std::atomic<bool> lookedUp{false};
    std::unique_ptr<Elsewhere> lookingUp;
    Add("a").onInit = [&] {
        lookingUp = std::make_unique<Elsewhere>([&] {
            Mgr().GetBundle("a");
            lookedUp = true;
        });
        EXPECT_TRUE(CanBeDoneElsewhere([this] { EXPECT_EQ(MGR_PHASE_INIT, Mgr().GetMgrPhase()); }));
        EXPECT_TRUE(CanBeDoneElsewhere([this] { Mgr().SetIntSetting(Mgr().GetIntSetting()); }));
        EXPECT_FALSE(lookingUp->Finishes(std::chrono::milliseconds(50)));
        EXPECT_FALSE(lookedUp);
    };
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_TRUE(lookingUp->Finishes());
}

TEST_F(BundleMgrTest, AnExceptionFromInitIsAFailure) {
    FakeBundle& bundle = Add("a", 1);
    FakeBundle& next = Add("b", 2);
    bundle.onInit = [] { throw std::runtime_error("no resources"); };
    EXPECT_EQ(-1, Mgr().InitAllBundles());
    EXPECT_EQ(BUNDLE_STATE_LOADED, bundle.GetState());
    EXPECT_EQ(BUNDLE_STATE_LOADED, next.GetState());
    EXPECT_TRUE(TableIsFree());
    EXPECT_THAT(Reported(), ElementsAre("3 \n========== Init Bundle --- [ a ] ==========\n",
                                        "1 Error: Init of bundle a threw: no resources\n",
                                        "3 Error: Init Bundle a failed! errcode=-1\n"));
}

TEST_F(BundleMgrTest, ABundleWithoutALibraryIsSkipped) {
    Add("a");
    Configure("Bundle=a\nBundle=zo_base_bundle\nBundle=missing\n");
    ASSERT_THAT(Reversed(), ElementsAre(IsNull(), IsNull(), NotNull()));
    EXPECT_EQ(0, Mgr().InitAllBundles());
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("init a", "fini a"));
}

// ---- FiniAllBundles -------------------------------------------------------------------------------

TEST_F(BundleMgrTest, BundlesAreFinalisedByDescendingOrderAndThenByName) {
    Add("c", 5);
    Add("a", 1);
    Add("b", 5);
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("fini b", "fini c", "fini a"));
    EXPECT_THAT(Reported(), ElementsAre("3 \n========== Fini Bundle --- b ==========\n",
                                        "3 \n========== Fini Bundle --- c ==========\n",
                                        "3 \n========== Fini Bundle --- a ==========\n"));
}

TEST_F(BundleMgrTest, CoreBundlesAreFinalisedInTheirPlaceByOrder) {
    Add("zo_base_bundle", 3);
    Add("a", 5);
    Add("b", 1);
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("fini a", "fini zo_base_bundle", "fini b"));
}

TEST_F(BundleMgrTest, OrdersAtTheEndsOfTheRangeKeepTheirPlace) {
    Add("least", INT_MIN);
    Add("zero", 0);
    Add("most", INT_MAX);
    EXPECT_EQ(0, Mgr().InitAllBundles());
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("init least", "init zero", "init most", "fini most", "fini zero", "fini least"));
}

TEST_F(BundleMgrTest, EveryBundleIsFinalisedWhateverItsStateAndAsOftenAsAsked) {
    FakeBundle& bundle = Add("a");
    Mgr().FiniAllBundles();
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("fini a", "fini a"));
    EXPECT_EQ(BUNDLE_STATE_FINIED, bundle.GetState());
    EXPECT_EQ(&bundle, Mgr().GetBundle("a"));
}

TEST_F(BundleMgrTest, AnExceptionFromFiniDoesNotKeepTheOthersFromTheirs) {
    Add("a", 2).onFini = [] { throw 5; };
    Add("b", 1);
    Mgr().FiniAllBundles();
    EXPECT_THAT(m_trace, ElementsAre("fini a", "fini b"));
    EXPECT_THAT(Reported(), ElementsAre("3 \n========== Fini Bundle --- a ==========\n",
                                        "1 Error: Fini of bundle a threw: an exception of unknown type\n",
                                        "3 \n========== Fini Bundle --- b ==========\n"));
    EXPECT_TRUE(TableIsFree());
}

TEST_F(BundleMgrTest, ABundleMayCallTheManagerWhileItIsFinalised) {
    BundleObject* found = nullptr;
    FakeBundle& bundle = Add("a");
    bundle.onFini = [&] { found = Mgr().GetBundle("a"); };
    Mgr().FiniAllBundles();
    EXPECT_EQ(&bundle, found);
}

// ---- WaitAllBundlesThreadExit ------------------------------------------------------------------------

double SecondsOf(const std::function<void()>& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST_F(BundleMgrTest, WaitingPausesForSevenSecondsFirst) {
    ASSERT_FALSE(g_isUnloadingCorba);
    const auto start = std::chrono::steady_clock::now();
    std::chrono::duration<double> atFirstWait{};
    Add("a").onWait = [&] { atFirstWait = std::chrono::steady_clock::now() - start; };
    Configure("Bundle=a\n");
    Mgr().WaitAllBundlesThreadExit();
    EXPECT_GE(atFirstWait.count(), 7.0);
    EXPECT_LT(atFirstWait.count(), 12.0);
}

TEST_F(BundleMgrTest, WithCorbaGoneThePauseIsFiveSecondsAndTheTableIsHeldThroughout) {
    Add("a");
    Add("b").onWait = [] { throw std::runtime_error("no patience"); };
    Add("c");
    Add("not configured");
    Configure("Bundle=a\nBundle=b\nBundle=missing\nBundle=c\nBundle=a\n");
    g_isUnloadingCorba = true;
    double seconds = 0;
    Elsewhere waiting([&] { seconds = SecondsOf([this] { Mgr().WaitAllBundlesThreadExit(); }); });

    // Until the call that has to wait.
    while (SecondsOf([this] { Mgr().GetBundle("a"); }) < 1.0) std::this_thread::yield();
    EXPECT_THAT(m_trace, ElementsAre("wait a", "wait c", "wait b", "wait a"));
    ASSERT_TRUE(waiting.Finishes());
    EXPECT_GE(seconds, 5.0);
    EXPECT_LT(seconds, 7.0);
    EXPECT_THAT(Reported(), ElementsAre("1 Error: WaitThreadExit of bundle b threw: no patience\n"));
    EXPECT_TRUE(TableIsFree());
}

TEST_F(BundleMgrTest, WaitingTakesItsListFromTheVirtualOperation) {
    g_isUnloadingCorba = true;
    InProcessMgr manager;
    FakeBundle bundle(m_trace, "a");
    manager.reversed = {nullptr, &bundle};
    manager.WaitAllBundlesThreadExit();
    EXPECT_THAT(m_trace, ElementsAre("wait a"));
}

// ---- Locks ------------------------------------------------------------------------------------------

// The first record of the process creates the log under the static-object lock. A thread
// that did so while it holds the table would wait for one that holds these two in the
// other order.
TEST_F(BundleMgrTest, TheFirstRecordIsNotMadeUnderTheTableLock) {
    using Operation = std::function<void()>;
    Add("a");
    const std::vector<Operation> operations = {[this] { Mgr().LoadBundle("zo_test_missing"); },
                                               [this] { Mgr().InitAllBundles(); }, [this] { Mgr().FiniAllBundles(); }};
    for (const Operation& operation : operations) {
        LogProxyDebugInfoBufMgr::Destroy();
        auto staticLock = std::make_unique<StaticGuard>(*ACE_Static_Object_Lock::instance());
        const Elsewhere operating(operation);
        const bool blocked = !operating.Finishes(std::chrono::milliseconds(50));
        EXPECT_TRUE(blocked);  // on the log
        Mgr().GetBundle("a");  // this thread holds the static-object lock
        staticLock.reset();
        EXPECT_TRUE(operating.Finishes());
    }
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
