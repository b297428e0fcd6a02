#include <csignal>
#include <optional>
#include <stdexcept>

#include <bundlemgr/base.h>

#include "bundletest.h"
#include "slotstest.h"
#include "src/lifetime/tablelock.h"
#include "support/capture.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::CanBeDoneElsewhere;
using test::Elsewhere;
using test::Install;
using test::IsInRepository;
using test::NamedInterface;
using test::Slot;
using test::StdoutOf;
using test::TestBundle;
using test::TestService;
using test::Trace;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using testing::Pair;

using Services = std::map<std::string, ServiceObjectBase*>;

std::string Begin(const std::string& service) {
    return "79 3 \n===== Begin to Exit Threads of -[ bundle -- " + service + " ] =====\n";
}

std::string Finish(const std::string& service) {
    return "90 3 \n===== Finish to Exit Threads of -[ bundle -- " + service + " ] =====\n";
}

class BundleObjectTest : public test::BundleTest {
protected:
    bool BundleIsFree() {
        return CanBeDoneElsewhere([this] {
            Services services;
            m_bundle.GetAllServiceObjects(services);
        });
    }

    Services AllServices() {
        Services services;
        m_bundle.GetAllServiceObjects(services);
        return services;
    }
};

using BundleObjectDeathTest = BundleObjectTest;

// ---- State and interface -----------------------------------------------------------------------

TEST_F(BundleObjectTest, AFreshBundleIsLoadedAndEmpty) {
    EXPECT_EQ(BUNDLE_STATE_LOADED, m_bundle.GetState());
    EXPECT_THAT(m_bundle.GetInterface(), IsNull());
    EXPECT_THAT(AllServices(), IsEmpty());
}

TEST_F(BundleObjectTest, InitAndFiniSetTheState) {
    EXPECT_EQ(0, m_bundle.Init());
    EXPECT_EQ(BUNDLE_STATE_INITED, m_bundle.GetState());
    m_bundle.Fini();
    EXPECT_EQ(BUNDLE_STATE_FINIED, m_bundle.GetState());
    m_bundle.SetState(-77);
    EXPECT_EQ(-77, m_bundle.GetState());
}

TEST_F(BundleObjectTest, StateAndInterfaceTakeNoLock) {
    const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_bundle.m_lock);
    EXPECT_TRUE(CanBeDoneElsewhere([this] {
        m_bundle.Init();
        m_bundle.Fini();
        m_bundle.SetState(m_bundle.GetState());
        m_bundle.GetInterface();
        m_bundle.SetInterface();
        m_bundle.RemoveInterface();
    }));
}

TEST_F(BundleObjectTest, TheBaseSetInterfaceForgetsTheInterface) {
    int deletions = 0;
    NamedInterface interface("named", &deletions);
    m_bundle.m_pInterface = &interface;
    EXPECT_EQ(&interface, m_bundle.GetInterface());
    m_bundle.SetInterface();
    EXPECT_THAT(m_bundle.GetInterface(), IsNull());
    EXPECT_EQ(0, deletions);
}

TEST_F(BundleObjectTest, TheInterfaceIsDeletedOnce) {
    int deletions = 0;
    m_bundle.m_pInterface = new NamedInterface("named", &deletions);
    m_bundle.RemoveInterface();
    EXPECT_EQ(1, deletions);
    EXPECT_THAT(m_bundle.GetInterface(), IsNull());
    m_bundle.RemoveInterface();
    EXPECT_EQ(1, deletions);
}

TEST_F(BundleObjectTest, TheDestructorDeletesNeitherServicesNorTheInterface) {
    int deletions = 0;
    NamedInterface interface("named", &deletions);
    TestService service(m_trace, "nowhere", "svc");
    {
        TestBundle bundle;
        bundle.m_pInterface = &interface;
        bundle.RegisterServiceObject("svc", &service);
    }
    EXPECT_EQ(0, deletions);
    EXPECT_THAT(m_trace, IsEmpty());
}

// ---- The table of services ------------------------------------------------------------------------

TEST_F(BundleObjectTest, ServicesAreListedByNameAndInOrder) {
    const auto b = Make("b");
    const auto a = Make("a");
    EXPECT_THAT(m_bundle.m_serviceObjectMap, ElementsAre(Pair("a", a.get()), Pair("b", b.get())));
    EXPECT_THAT(m_bundle.m_vecServiceNames, ElementsAre("b", "a"));
}

TEST_F(BundleObjectTest, AllServicesJoinWhatIsThere) {
    const auto a = Make("a");
    const TestService other(m_trace, "nowhere", "other");
    auto* const foreign = const_cast<TestService*>(&other);
    Services services{{"a", foreign}, {"z", foreign}};
    m_bundle.GetAllServiceObjects(services);
    EXPECT_THAT(services, ElementsAre(Pair("a", a.get()), Pair("z", foreign)));
}

TEST_F(BundleObjectDeathTest, ANullServiceEndsTheProcess) {
    EXPECT_EXIT(m_bundle.RegisterServiceObject("svc", nullptr), testing::KilledBySignal(SIGABRT),
                "ACE_ASSERT: file bundledef, line 144 assertion failed for 'pServiceObject != 0'");
}

TEST_F(BundleObjectDeathTest, ASecondServiceOfANameEndsTheProcess) {
    const auto service = Make("svc");
    EXPECT_EXIT(m_bundle.RegisterServiceObject("svc", service.get()), testing::KilledBySignal(SIGABRT),
                "ACE_ASSERT: file bundledef, line 148 assertion failed for "
                "'m_serviceObjectMap\\.find\\(strSvcName\\) == m_serviceObjectMap\\.end\\(\\)'");
}

TEST_F(BundleObjectTest, ANullNameIsRefusedWithoutHarm) {
    const auto service = Make("svc");
    EXPECT_THROW(m_bundle.RegisterServiceObject(nullptr, service.get()), std::logic_error);
    EXPECT_THROW(m_bundle.RemoveServiceObject(nullptr), std::logic_error);
    EXPECT_TRUE(BundleIsFree());
    EXPECT_THAT(m_bundle.m_vecServiceNames, ElementsAre("svc"));
}

TEST_F(BundleObjectTest, TheTableIsUsedUnderTheLockOnly) {
    const auto service = Make("svc");
    auto guard = std::make_unique<ACE_Guard<ACE_Recursive_Thread_Mutex>>(m_bundle.m_lock);
    std::list<Elsewhere> waiting;
    waiting.emplace_back([this] { AllServices(); });
    waiting.emplace_back([this, &service] { m_bundle.RegisterServiceObject("more", service.get()); });
    waiting.emplace_back([this] { m_bundle.RemoveServiceObject("unknown"); });
    waiting.emplace_back([this] { m_bundle.WaitThreadExit(); });
    waiting.emplace_back([this] { m_bundle.UnLoadAllServiceObjects(); });
    for (const Elsewhere& thread : waiting) EXPECT_FALSE(thread.Finishes(std::chrono::milliseconds(10)));
    guard.reset();
    for (const Elsewhere& thread : waiting) EXPECT_TRUE(thread.Finishes());
}

// ---- RemoveServiceObject ---------------------------------------------------------------------------

TEST_F(BundleObjectTest, RemovingFinalisesDestroysForgetsAndPosts) {
    Add("a");
    Add("b");
    m_bundle.RemoveServiceObject("a");
    EXPECT_THAT(m_trace, ElementsAre("fini a", "dtor a"));
    EXPECT_FALSE(IsInRepository("a"));
    EXPECT_THAT(m_bundle.m_vecServiceNames, ElementsAre("b"));
    EXPECT_EQ(0U, m_bundle.m_serviceObjectMap.count("a"));
    EXPECT_THAT(TakeEvents(), ElementsAre(2));
    EXPECT_THAT(Reported("bundledef"), IsEmpty());
}

TEST_F(BundleObjectTest, RemovingAnUnknownServiceIsReportedOnly) {
    Add("a");
    const std::string text = "Error: Remove service unknown failed! Service not found!\n";
    EXPECT_EQ(text, StdoutOf([this] { m_bundle.RemoveServiceObject("unknown"); }));
    EXPECT_THAT(Reported("bundledef"), ElementsAre("178 3 " + text));
    EXPECT_THAT(TakeEvents(), IsEmpty());
    EXPECT_THAT(m_trace, IsEmpty());
    EXPECT_TRUE(IsInRepository("a"));
    EXPECT_THAT(m_bundle.m_vecServiceNames, ElementsAre("a"));
}

TEST_F(BundleObjectTest, AServiceOfAnotherBundleIsNotRemoved) {
    Install("foreign", new TestService(m_trace, "nowhere", "foreign"));
    m_bundle.RemoveServiceObject("foreign");
    EXPECT_TRUE(IsInRepository("foreign"));
    EXPECT_THAT(m_trace, IsEmpty());
}

TEST_F(BundleObjectTest, AServiceThatIsInNoRepositoryIsOnlyForgotten) {
    const auto service = Make("svc");
    m_bundle.RemoveServiceObject("svc");
    EXPECT_THAT(AllServices(), IsEmpty());
    EXPECT_THAT(m_trace, IsEmpty());
    EXPECT_THAT(TakeEvents(), ElementsAre(2));
}

TEST_F(BundleObjectTest, ASuspendedServiceIsRemovedAsWell) {
    Add("a");
    ACE_Service_Repository::instance()->suspend("a");
    m_bundle.RemoveServiceObject("a");
    EXPECT_THAT(m_trace, ElementsAre("fini a", "dtor a"));
}

TEST_F(BundleObjectTest, WithoutAnExterminatorTheMemoryIsFreedWithoutTheDestructor) {
    Add("a", nullptr);
    m_bundle.RemoveServiceObject("a");
    EXPECT_THAT(m_trace, ElementsAre("fini a"));
    EXPECT_THAT(AllServices(), IsEmpty());
}

TEST_F(BundleObjectTest, AServiceThatDidNotInitialiseIsDestroyedWithoutFini) {
    auto* const service = new TestService(m_trace, "bundle", "a");
    service->initResult = 3;
    Install("a", service);
    m_bundle.RemoveServiceObject("a");
    EXPECT_THAT(m_trace, ElementsAre("dtor a"));
}

TEST_F(BundleObjectTest, FiniRunsUnderTheLockAndMayCallBack) {
    Services atFini;
    const TestService::Action onFini = [&] {
        atFini = AllServices();
        m_bundle.RemoveServiceObject("b");
        std::atomic<bool> blocked{true};
        const Elsewhere other([&] {
            AllServices();
            blocked = false;
        });
        EXPECT_FALSE(other.Finishes(std::chrono::milliseconds(20)));
        EXPECT_TRUE(blocked);
        m_bundle.m_lock.release();  // lets the other thread go
        EXPECT_TRUE(other.Finishes());
        m_bundle.m_lock.acquire();
    };
    TestService& a = Add("a");
    TestService& b = Add("b");
    a.onFini = &onFini;
    m_bundle.RemoveServiceObject("a");
    EXPECT_THAT(atFini, ElementsAre(Pair("a", &a), Pair("b", &b)));
    EXPECT_THAT(m_trace, ElementsAre("fini a", "fini b", "dtor b", "dtor a"));
    EXPECT_THAT(AllServices(), IsEmpty());
    EXPECT_TRUE(BundleIsFree());
}

TEST_F(BundleObjectTest, TheRepositoryIsFreeWhileAServiceIsFinalised) {
    int free = 0;
    const TestService::Action onFini = [&free] {
        if (CanBeDoneElsewhere([] { IsInRepository("a"); })) ++free;
    };
    for (const char* const name : {"a", "b", "c"}) Add(name).onFini = &onFini;
    m_bundle.RemoveServiceObject("b");
    m_bundle.UnLoadAllServiceObjects();
    EXPECT_EQ(3, free);
}

TEST_F(BundleObjectTest, AServiceMayRemoveItselfWhileItIsRemoved) {
    const TestService::Action onFini = [this] { m_bundle.RemoveServiceObject("a"); };
    Add("a").onFini = &onFini;
    m_bundle.RemoveServiceObject("a");
    EXPECT_THAT(m_trace, ElementsAre("fini a", "dtor a"));
    EXPECT_THAT(AllServices(), IsEmpty());
    EXPECT_THAT(Reported("bundledef"), IsEmpty());
    EXPECT_THAT(TakeEvents(), ElementsAre(2, 2));
}

TEST_F(BundleObjectTest, AServiceThatThrowsIsRemovedAllTheSame) {
    const TestService::Action onFini = [] { throw std::runtime_error("not now"); };
    Add("a").onFini = &onFini;
    m_bundle.RemoveServiceObject("a");
    EXPECT_THAT(m_trace, ElementsAre("fini a", "dtor a"));
    EXPECT_THAT(AllServices(), IsEmpty());
    EXPECT_FALSE(IsInRepository("a"));
    EXPECT_THAT(TakeEvents(), ElementsAre(2));
    EXPECT_TRUE(BundleIsFree());
    ASSERT_EQ(1U, Reported("bundledef").size());
    EXPECT_THAT(Reported("bundledef").front(), testing::EndsWith(" 1 Error: fini of service a threw: not now\n"));
}

TEST_F(BundleObjectTest, ANameMayBeUsedAgainAfterItsServiceWasRemoved) {
    Add("a");
    m_bundle.RemoveServiceObject("a");
    TestService& second = Add("a");
    EXPECT_THAT(AllServices(), ElementsAre(Pair("a", &second)));
    m_bundle.WaitThreadExit();
    m_bundle.RemoveServiceObject("a");
    EXPECT_THAT(m_trace, ElementsAre("fini a", "dtor a", "exit a", "fini a", "dtor a"));
}

// ---- WaitThreadExit -----------------------------------------------------------------------------------

TEST_F(BundleObjectTest, ThreadsEndNewestFirst) {
    const auto a = Make("a");
    const auto b = Make("b");
    const auto c = Make("c");
    m_bundle.WaitThreadExit();
    EXPECT_THAT(m_trace, ElementsAre("exit c", "exit b", "exit a"));
    EXPECT_THAT(Reported("bundledef"),
                ElementsAre(Begin("c"), Finish("c"), Begin("b"), Finish("b"), Begin("a"), Finish("a")));
}

TEST_F(BundleObjectTest, ABundleWithoutServicesIsSilent) {
    EXPECT_EQ("", StdoutOf([this] {
                  m_bundle.WaitThreadExit();
                  m_bundle.UnLoadAllServiceObjects();
              }));
    EXPECT_EQ("", Log());
}

TEST_F(BundleObjectTest, NamesWithoutAServiceAreReportedAndNobodyIsAsked) {
    m_bundle.m_vecServiceNames = {"absent", "null"};
    m_bundle.m_serviceObjectMap["null"] = nullptr;
    m_bundle.WaitThreadExit();
    EXPECT_THAT(Reported("bundledef"), ElementsAre(Begin("null"), Finish("null"), Begin("absent"), Finish("absent")));
}

TEST_F(BundleObjectTest, AServiceThatABundleListedByItselfIsAsked) {
    TestService service(m_trace, "nowhere", "own");
    m_bundle.m_vecServiceNames = {"own"};
    m_bundle.m_serviceObjectMap["own"] = &service;
    m_bundle.WaitThreadExit();
    EXPECT_THAT(m_trace, ElementsAre("exit own"));
}

TEST_F(BundleObjectTest, AServiceThatThrowsDoesNotKeepTheOthersFromEnding) {
    const TestService::Action onExit = [] { throw 5; };
    const auto a = Make("a");
    const auto b = Make("b");
    b->onExit = &onExit;
    m_bundle.WaitThreadExit();
    EXPECT_THAT(m_trace, ElementsAre("exit b", "exit a"));
    EXPECT_TRUE(BundleIsFree());
    const Trace reported = Reported("bundledef");
    ASSERT_EQ(5U, reported.size());
    EXPECT_THAT(reported[1],
                testing::EndsWith(" 1 Error: ExitThreads of service b threw: an exception of unknown type\n"));
    EXPECT_EQ(Finish("b"), reported[2]);
}

TEST_F(BundleObjectTest, EndingItsThreadsAServiceMayRemoveItselfAndOthers) {
    const TestService::Action onExit = [this] {
        m_bundle.RemoveServiceObject("c");
        m_bundle.RemoveServiceObject("a");
    };
    Add("a");
    Add("b");
    Add("c").onExit = &onExit;
    m_bundle.WaitThreadExit();
    EXPECT_THAT(m_trace, ElementsAre("exit c", "fini c", "dtor c", "fini a", "dtor a", "exit b"));
}

TEST_F(BundleObjectTest, ADestroyedServiceIsNotAsked) {
    Make("a").reset();
    const auto b = Make("b");
    m_bundle.WaitThreadExit();
    EXPECT_THAT(m_trace, ElementsAre("dtor a", "exit b"));
    EXPECT_THAT(Reported("bundledef"), ElementsAre(Begin("b"), Finish("b"), Begin("a"), Finish("a")));
}

// The next service may lie where a destroyed one did.
TEST_F(BundleObjectTest, ADestroyedServiceIsNotTakenForItsSuccessor) {
    alignas(TestService) unsigned char place[sizeof(TestService)];
    auto* const first = new (place) TestService(m_trace, "bundle", "first");
    first->~TestService();
    auto* const second = new (place) TestService(m_trace, "bundle", "second");
    m_trace.clear();
    m_bundle.WaitThreadExit();
    EXPECT_THAT(m_trace, ElementsAre("exit second"));
    second->~TestService();
}

// ---- UnLoadAllServiceObjects ----------------------------------------------------------------------------

TEST_F(BundleObjectTest, ServicesAreUnloadedNewestFirstAndStayInTheTable) {
    Add("a");
    Add("b");
    Add("c");
    const Services before = AllServices();
    m_bundle.UnLoadAllServiceObjects();
    EXPECT_THAT(m_trace, ElementsAre("fini c", "dtor c", "fini b", "dtor b", "fini a", "dtor a"));
    EXPECT_EQ(before, AllServices());
    EXPECT_THAT(m_bundle.m_vecServiceNames, ElementsAre("a", "b", "c"));
    EXPECT_FALSE(IsInRepository("a") || IsInRepository("b") || IsInRepository("c"));
    EXPECT_THAT(TakeEvents(), IsEmpty());
    EXPECT_THAT(Reported("bundledef"), IsEmpty());
}

TEST_F(BundleObjectTest, AnUnloadedServiceIsNotCalledAgain) {
    Add("a");
    Add("b", nullptr);
    TestService& silent = Add("c", nullptr);
    silent.callsBaseFini = false;
    m_bundle.UnLoadAllServiceObjects();
    m_trace.clear();
    m_bundle.WaitThreadExit();
    m_bundle.UnLoadAllServiceObjects();
    for (const char* const name : {"a", "b", "c"}) EXPECT_THAT(test::FindInterface(m_bundle, name), IsNull());
    EXPECT_THAT(m_trace, IsEmpty());
    EXPECT_THAT(Reported("bundledef"),
                ElementsAre(Begin("c"), Finish("c"), Begin("b"), Finish("b"), Begin("a"), Finish("a")));
}

TEST_F(BundleObjectTest, AnUnloadedServiceCanStillBeTakenOutOfTheTable) {
    Add("a", nullptr);
    m_bundle.UnLoadAllServiceObjects();
    m_bundle.RemoveServiceObject("a");
    EXPECT_THAT(m_trace, ElementsAre("fini a"));
    EXPECT_THAT(AllServices(), IsEmpty());
    EXPECT_THAT(TakeEvents(), ElementsAre(2));
}

TEST_F(BundleObjectTest, ServicesMayRemoveThemselvesWhileTheyAreUnloaded) {
    const TestService::Action removeA = [this] { m_bundle.RemoveServiceObject("a"); };
    const TestService::Action removeB = [this] { m_bundle.RemoveServiceObject("b"); };
    Add("a").onFini = &removeA;
    Add("b", nullptr).onFini = &removeB;
    m_bundle.UnLoadAllServiceObjects();
    EXPECT_THAT(m_trace, ElementsAre("fini b", "fini a", "dtor a"));
    EXPECT_THAT(AllServices(), IsEmpty());
    EXPECT_THAT(TakeEvents(), ElementsAre(2, 2));
}

TEST_F(BundleObjectTest, AServiceMayRemoveAnOlderOneWhileItIsUnloaded) {
    const TestService::Action removeA = [this] { m_bundle.RemoveServiceObject("a"); };
    Add("a");
    Add("b").onFini = &removeA;
    m_bundle.UnLoadAllServiceObjects();
    EXPECT_THAT(m_trace, ElementsAre("fini b", "fini a", "dtor a", "dtor b"));
    EXPECT_THAT(m_bundle.m_vecServiceNames, ElementsAre("b"));
}

TEST_F(BundleObjectTest, OlderServicesAreFoundWhileANewerOneIsFinalised) {
    bool found = false;
    const TestService::Action onFini = [&found] { found = IsInRepository("a"); };
    Add("a");
    Add("b").onFini = &onFini;
    m_bundle.UnLoadAllServiceObjects();
    EXPECT_TRUE(found);
}

TEST_F(BundleObjectTest, TheWholeUnloadingIsUnderTheLock) {
    std::unique_ptr<Elsewhere> other;
    const TestService::Action onFini = [&] {
        if (other == nullptr) other = std::make_unique<Elsewhere>([this] { AllServices(); });
        EXPECT_FALSE(other->Finishes(std::chrono::milliseconds(20)));
    };
    for (const char* const name : {"a", "b", "c"}) Add(name).onFini = &onFini;
    m_bundle.UnLoadAllServiceObjects();
    EXPECT_TRUE(other->Finishes());
}

TEST_F(BundleObjectTest, ASuspendedServiceIsNotUnloaded) {
    Add("a");
    Add("b");
    ACE_Service_Repository::instance()->suspend("a");
    m_bundle.UnLoadAllServiceObjects();
    EXPECT_THAT(m_trace, ElementsAre("fini b", "dtor b"));
    EXPECT_TRUE(IsInRepository("a"));
    m_bundle.WaitThreadExit();
    EXPECT_THAT(m_trace, ElementsAre("fini b", "dtor b", "exit a"));
    m_bundle.RemoveServiceObject("a");
}

TEST_F(BundleObjectTest, AServiceThatThrowsDoesNotKeepTheOthersFromBeingUnloaded) {
    const TestService::Action onFini = [] { throw std::runtime_error("not now"); };
    Add("a");
    TestService& b = Add("b");
    b.onFini = &onFini;
    b.callsBaseFini = false;
    Add("c", nullptr).onFini = &onFini;
    m_bundle.UnLoadAllServiceObjects();
    EXPECT_THAT(m_trace, ElementsAre("fini c", "fini b", "dtor b", "fini a", "dtor a"));
    EXPECT_FALSE(IsInRepository("a") || IsInRepository("b") || IsInRepository("c"));
    EXPECT_TRUE(BundleIsFree());
    m_trace.clear();
    m_bundle.WaitThreadExit();
    EXPECT_THAT(m_trace, IsEmpty());
    EXPECT_EQ(0, ACE_Service_Repository::instance()->fini());
}

TEST_F(BundleObjectTest, NamesAreComparedExactly) {
    const auto a = Make("svc");
    Install("Svc", new TestService(m_trace, "nowhere", "Svc"));
    Install("svc2", new TestService(m_trace, "nowhere", "svc2"));
    m_bundle.UnLoadAllServiceObjects();
    EXPECT_TRUE(IsInRepository("Svc"));
    EXPECT_TRUE(IsInRepository("svc2"));
}

// ---- FindServiceInterface ---------------------------------------------------------------------------------

TEST_F(BundleObjectTest, AnInterfaceIsFoundByItsServicesName) {
    NamedInterface interface;
    const auto service = Make("svc");
    EXPECT_THAT(test::FindInterface(m_bundle, "svc"), IsNull());
    service->m_pInterface = &interface;
    EXPECT_EQ(&interface, test::FindInterface(m_bundle, "svc"));
    EXPECT_THAT(test::FindInterface(m_bundle, "Svc"), IsNull());
}

TEST_F(BundleObjectTest, TheServicesAreThoseThatTheBundleNames) {
    class OwnServices : public TestBundle {
    public:
        explicit OwnServices(ServiceObjectBase& service) : m_service(service) {}
        void GetAllServiceObjects(Services& out) override { out["own"] = &m_service; }

    private:
        ServiceObjectBase& m_service;
    };
    NamedInterface interface;
    TestService service(m_trace, "nowhere", "svc");
    service.m_pInterface = &interface;
    OwnServices bundle(service);
    EXPECT_EQ(&interface, test::FindInterface(bundle, "own"));
}

TEST_F(BundleObjectTest, AnExceptionFromTheServiceLeavesTheBundleFree) {
    const TestService::Action onGetInterface = [] { throw std::runtime_error("no interface today"); };
    const auto service = Make("svc");
    service->onGetInterface = &onGetInterface;
    EXPECT_THROW(test::FindInterface(m_bundle, "svc"), std::runtime_error);
    EXPECT_TRUE(BundleIsFree());
}

// ---- LoadAllServiceObjects, as far as it needs no library ----------------------------------------------------

class LoadingTest : public BundleObjectTest {
protected:
    void Configure(const std::string& content) {
        SetServer();
        m_dir.Write("etc/oss_cfg/nbi/conf/bundle/svc.cfg", content);
    }
    void SetServer() {
        m_server.emplace("KORU_SERVER_PATH", m_dir.Path());
        m_dir.Write("nbi/present", "");
    }
    static std::string Starting(const std::string& service) {
        return "257 3 \n===== Init Service -[ " + service + " ] =====\n";
    }
    static std::string Ready(const std::string& service) {
        return "267 3 \n===== Service Ready -[ " + service + " ] =====\n";
    }

private:
    std::optional<test::ScopedEnv> m_server;
};

TEST_F(LoadingTest, WithoutAConfigurationDirectoryNothingIsLoaded) {
    const std::string text = "\n===== get svc cfg is empty, proc will exit and stop to init Service =====\n";
    EXPECT_EQ(text, StdoutOf([this] { EXPECT_EQ(-1, m_bundle.LoadAllServiceObjects()); }));
    EXPECT_THAT(Reported("bundledef"), ElementsAre("230 3 " + text));
}

TEST_F(LoadingTest, AMissingFileIsReportedByItsReaderAndIsNoFailure) {
    SetServer();
    const std::string file = m_dir / "nbi/../etc/oss_cfg/nbi/conf//bundle/svc.cfg";
    EXPECT_EQ("File :" + file + " Open Failed \nFailed in Read  's SvcConfig File \n",
              StdoutOf([this] { EXPECT_EQ(0, m_bundle.LoadAllServiceObjects()); }));
    EXPECT_THAT(Reported("bundledef"), IsEmpty());
}

TEST_F(LoadingTest, AFileWithAnotherKeyStartsNoService) {
    Configure("service=zo_test:a\nService=zo_test:b\n");
    EXPECT_EQ("Item name is not 'service'\nFailed in Read  's SvcConfig File \n",
              StdoutOf([this] { EXPECT_EQ(0, m_bundle.LoadAllServiceObjects()); }));
}

TEST_F(LoadingTest, AnEmptyFileIsSilent) {
    Configure("# none\n");
    m_bundle.SetState(BUNDLE_STATE_FINIED);
    BundleMgr::Instance()->SetMgrPhase(MGR_PHASE_FINI);
    EXPECT_EQ("", StdoutOf([this] { EXPECT_EQ(0, m_bundle.LoadAllServiceObjects()); }));
}

TEST_F(LoadingTest, NothingStartsWhileTheManagerIsFinalising) {
    Configure("service=zo_test_missing:svc\n");
    BundleMgr::Instance()->SetMgrPhase(MGR_PHASE_FINI);
    m_bundle.SetState(BUNDLE_STATE_FINIED);
    EXPECT_EQ("", StdoutOf([this] { EXPECT_EQ(-1, m_bundle.LoadAllServiceObjects()); }));
}

TEST_F(LoadingTest, AnyOtherPhaseIsNoObstacle) {
    Configure("service=l:a:b\n");
    BundleMgr::Instance()->SetMgrPhase(77);
    EXPECT_EQ(0, m_bundle.LoadAllServiceObjects());
}

TEST_F(LoadingTest, NothingStartsInAFinalisedBundle) {
    Configure("service=zo_test_missing:svc\n");
    m_bundle.SetState(BUNDLE_STATE_FINIED);
    EXPECT_EQ(1, m_bundle.LoadAllServiceObjects());
    EXPECT_THAT(Reported("bundledef"),
                ElementsAre("251 3 \n===== proc will exit and stop to init Service -[ svc ] =====\n"));
}

TEST_F(LoadingTest, AnyOtherStateIsNoObstacle) {
    Configure("service=l:a:b\n");
    for (const int state : {BUNDLE_STATE_LOADED + 0, BUNDLE_STATE_INITED + 0, 3, -1}) {
        m_bundle.SetState(state);
        EXPECT_EQ(0, m_bundle.LoadAllServiceObjects()) << state;
    }
}

TEST_F(LoadingTest, AMissingLibraryFailsAndStopsTheLoading) {
    Configure("service=zo_test_missing:svc\nservice=zo_test_missing:next\n");
    Trace removed;
    m_bundle.onRemove = [&removed](const std::string& name) { removed.push_back(name); };
    EXPECT_EQ(1, m_bundle.LoadAllServiceObjects());
    EXPECT_THAT(Reported("bundledef"),
                ElementsAre(Starting("svc"),
                            "262 3 \n===== Init Failed -[ svc ][ params:dynamic svc Service_Object * "
                            "libzo_test_missing:_make_svc() \"\" ][ err: 1 ] =====\n",
                            "178 3 Error: Remove service svc failed! Service not found!\n"));
    EXPECT_THAT(removed, ElementsAre("svc"));
    EXPECT_THAT(TakeEvents(), IsEmpty());
    EXPECT_TRUE(BundleIsFree());
}

TEST_F(LoadingTest, AServiceNameThatTheConfiguratorCannotReadCountsAsReady) {
    Configure("service=l:a:b\nservice=l:\n");
    EXPECT_EQ(0, m_bundle.LoadAllServiceObjects());
    EXPECT_THAT(Reported("bundledef"), ElementsAre(Starting("a:b"), Ready("a:b"), Starting(""), Ready("")));
    EXPECT_THAT(AllServices(), IsEmpty());
}

TEST_F(LoadingTest, ANamesakeIsFinalisedFirstEvenIfItThrows) {
    Configure("service=zo_test_missing:a\n");
    const TestService::Action onFini = [] {
        EXPECT_TRUE(CanBeDoneElsewhere([] { IsInRepository("a"); }));
        throw std::runtime_error("not now");
    };
    auto* const namesake = new TestService(m_trace, "nowhere", "a");
    namesake->onFini = &onFini;
    Install("a", namesake);
    EXPECT_EQ(1, m_bundle.LoadAllServiceObjects());
    EXPECT_THAT(m_trace, ElementsAre("fini a", "dtor a"));
    EXPECT_FALSE(IsInRepository("a"));
}

TEST_F(LoadingTest, AFailedServiceTakesTheOneOfAnEarlierLoadingOutOfTheTable) {
    Configure("service=zo_test_missing:a\n");
    Add("a", nullptr);
    m_bundle.UnLoadAllServiceObjects();
    EXPECT_EQ(1, m_bundle.LoadAllServiceObjects());
    EXPECT_THAT(AllServices(), IsEmpty());
    EXPECT_THAT(m_trace, ElementsAre("fini a"));
}

// ---- Locks ------------------------------------------------------------------------------------------------------

// The log and the event manager are created under the static-object lock; not by a thread
// that holds a bundle, since one that holds these two in the other order may wait for it.
TEST_F(BundleObjectTest, TheFirstRecordAndTheFirstEventAreNotMadeUnderTheLock) {
    using Operation = std::function<void()>;
    Add("a");
    Add("b");
    const TestService::Action removeB = [this] { m_bundle.RemoveServiceObject("b"); };
    Add("b2").onFini = &removeB;
    const std::vector<Operation> operations = {
        [this] { m_bundle.RemoveServiceObject("unknown"); }, [this] { m_bundle.RemoveServiceObject("a"); },
        [this] { m_bundle.WaitThreadExit(); }, [this] { m_bundle.UnLoadAllServiceObjects(); }};
    for (const Operation& operation : operations) {
        LogProxyDebugInfoBufMgr::Destroy();
        LightEventMgr::Destroy();
        auto staticLock = std::make_unique<ACE_Guard<ACE_Recursive_Thread_Mutex>>(*ACE_Static_Object_Lock::instance());
        const Elsewhere operating(operation);
        EXPECT_FALSE(operating.Finishes(std::chrono::milliseconds(50)));  // it waits for the log
        AllServices();                                                    // this thread holds the static-object lock
        staticLock.reset();
        EXPECT_TRUE(operating.Finishes());
    }
}

// The configurator holds its repository's lock while it calls a factory, whose service
// locks the bundle in order to register.
TEST_F(BundleObjectTest, NobodyWaitsForTheRepositoryUnderTheLock) {
    using Operation = std::function<void()>;
    Add("a");
    Add("b");
    const std::vector<Operation> operations = {[this] { m_bundle.RemoveServiceObject("a"); },
                                               [this] { m_bundle.UnLoadAllServiceObjects(); }};
    for (const Operation& operation : operations) {
        auto repository =
            std::make_unique<ACE_Guard<ACE_Recursive_Thread_Mutex>>(ACE_Service_Repository::instance()->lock());
        const Elsewhere operating(operation);
        EXPECT_FALSE(operating.Finishes(std::chrono::milliseconds(50)));
        AllServices();  // this thread holds the repository
        repository.reset();
        EXPECT_TRUE(operating.Finishes());
    }
    EXPECT_THAT(m_trace, ElementsAre("fini a", "dtor a", "fini b", "dtor b"));
}

// Another thread may hold the manager's table and wait for the bundle.
TEST_F(BundleObjectTest, AServiceThatIsEndedFindsItsBundleWithoutTheTable) {
    BundleObject* found = nullptr;
    const TestService::Action ask = [&found] { found = BundleMgr::Instance()->GetBundle("bundle"); };
    Add("unloaded").onFini = &ask;
    Add("removed").onFini = &ask;
    Add("waited").onExit = &ask;
    Add("asked").onGetInterface = &ask;
    const std::vector<std::function<void()>> operations = {
        [this] { test::FindInterface(m_bundle, "asked"); }, [this] { m_bundle.WaitThreadExit(); },
        [this] { m_bundle.RemoveServiceObject("removed"); }, [this] { m_bundle.UnLoadAllServiceObjects(); }};
    auto table = std::make_unique<TableLock::Guard>();
    for (const std::function<void()>& operation : operations) {
        EXPECT_TRUE(CanBeDoneElsewhere(operation));
        EXPECT_EQ(&m_bundle, std::exchange(found, nullptr));
    }
    const Elsewhere stranger(ask);
    EXPECT_FALSE(stranger.Finishes(std::chrono::milliseconds(20)));
    table.reset();
    EXPECT_TRUE(stranger.Finishes());
}

TEST_F(BundleObjectTest, ServicesComeAndGoOnManyThreadsWithoutADeadlock) {
    std::list<Elsewhere> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this, thread] {
            Trace trace;
            const std::string name = "s" + std::to_string(thread);
            for (int round = 0; round < 50; ++round) {
                {
                    // As in a factory.
                    const ACE_Guard<ACE_Recursive_Thread_Mutex> repository(ACE_Service_Repository::instance()->lock());
                    Install(name, new TestService(trace, "bundle", name.c_str()));
                }
                m_bundle.RemoveServiceObject(name.c_str());
            }
            EXPECT_EQ(100U, trace.size());
        });
    }
    for (const Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
    EXPECT_THAT(AllServices(), IsEmpty());
}

// ---- The order of the virtual operations, as a caller in another library sees it ----------------------------------

class RecordingBundle : public BundleObject {
public:
    ~RecordingBundle() override { s_called = "~"; }
    std::string GetName() override {
        Called("GetName");
        return "a name that is too long for the string object itself";
    }
    int GetBundleOrder() override { return Called("GetBundleOrder"); }
    ServiceInterface* GetInterface() override {
        Called("GetInterface");
        return &m_interface;
    }
    void SetInterface() override { Called("SetInterface"); }
    void RemoveInterface() override { Called("RemoveInterface"); }
    int Init() override { return Called("Init"); }
    void Fini() override { Called("Fini"); }
    void WaitThreadExit() override { Called("WaitThreadExit"); }
    void RegisterServiceObject(const char* serviceName, ServiceObjectBase*) override {
        Called("RegisterServiceObject " + std::string(serviceName));
    }
    void RemoveServiceObject(const char* serviceName) override {
        Called("RemoveServiceObject " + std::string(serviceName));
    }
    void GetAllServiceObjects(Services& out) override {
        Called("GetAllServiceObjects");
        out["svc"] = nullptr;
    }

    static std::string s_called;

private:
    static int Called(const std::string& operation) {
        s_called = operation;
        return 42;
    }
    NamedInterface m_interface;
};

std::string RecordingBundle::s_called;

using BundleSlotsTest = test::SlotsTest<BundleObject, RecordingBundle, testing::Test>;

TEST_F(BundleSlotsTest, DestructorsComeFirst) {
    ExpectDestructorsFirst();
}

TEST_F(BundleSlotsTest, WhatTheBundleIsFollows) {
    EXPECT_EQ("a name that is too long for the string object itself", Call<std::string>(2));
    EXPECT_EQ("GetName", Called());
    EXPECT_EQ(42, Call<int>(3));
    EXPECT_EQ("GetBundleOrder", Called());
    EXPECT_EQ("named", Call<ServiceInterface*>(4)->GetDescription());
    EXPECT_EQ("GetInterface", Called());
    Call<void>(5);
    EXPECT_EQ("SetInterface", Called());
    Call<void>(6);
    EXPECT_EQ("RemoveInterface", Called());
}

TEST_F(BundleSlotsTest, WhatItDoesComesLast) {
    EXPECT_EQ(42, Call<int>(7));
    EXPECT_EQ("Init", Called());
    Call<void>(8);
    EXPECT_EQ("Fini", Called());
    Call<void>(9);
    EXPECT_EQ("WaitThreadExit", Called());
    Slot<void (*)(BundleObject*, const char*, ServiceObjectBase*)>(m_object, 10)(m_object, "a", nullptr);
    EXPECT_EQ("RegisterServiceObject a", Called());
    Slot<void (*)(BundleObject*, const char*)>(m_object, 11)(m_object, "b");
    EXPECT_EQ("RemoveServiceObject b", Called());
    Services services;
    Slot<void (*)(BundleObject*, Services&)>(m_object, 12)(m_object, services);
    EXPECT_EQ("GetAllServiceObjects", Called());
    EXPECT_EQ(1U, services.size());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
