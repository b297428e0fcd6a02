#include "src/configurator/serviceloader.h"

#include <atomic>
#include <list>
#include <stdexcept>
#include <string>

#include <ace/DLL.h>
#include <ace/Service_Config.h>
#include <ace/Service_Repository.h>
#include <gmock/gmock.h>

#include "src/configurator/servicelibraries.h"
#include "support/elsewhere.h"
#include "support/hookedservices.h"
#include "support/leaks.h"
#include "unit/bundle/bundledeftest.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::At;
using test::CanBeDoneElsewhere;
using test::Done;
using test::Elsewhere;
using test::Install;
using test::IsDone;
using test::IsInRepository;
using test::TestBundle;
using test::TestService;
using test::WaitFor;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

std::string Stopped(const std::string& service) {
    return "251 3 \n===== proc will exit and stop to init Service -[ " + service + " ] =====\n";
}

std::string Starting(const std::string& service) {
    return "257 3 \n===== Init Service -[ " + service + " ] =====\n";
}

std::string Ready(const std::string& service) {
    return "267 3 \n===== Service Ready -[ " + service + " ] =====\n";
}

std::string Failed(const ServiceDirective& service, int error) {
    return "262 3 \n===== Init Failed -[ " + service.service + " ][ params:" + service.directive +
           " ][ err: " + std::to_string(error) + " ] =====\n";
}

std::string NotFound(const std::string& service) {
    return "178 3 Error: Remove service " + service + " failed! Service not found!\n";
}

ServiceDirective Directive(const std::string& service, const std::string& library = "libzo_loader_services") {
    return {service, library, "dynamic " + service + " Service_Object * " + library + ":_make_" + service + "() \"\""};
}

constexpr char kHost[] = "libzo_static_service";

/// Bundles "fx_hooked_a" and "fx_hooked_b", whose services "a1", "a2", "b1" and "b2" are in a
/// real library and do what a test has told them.
class ServiceLoaderTest : public test::BundleObjectTest {
protected:
    ServiceLoaderTest() {
        for (TestBundle* const bundle : {&m_a, &m_b}) BundleMgr::Instance()->RegisterBundle(bundle);
    }
    ~ServiceLoaderTest() override {
        for (TestBundle* const bundle : {&m_a, &m_b}) bundle->UnLoadAllServiceObjects();
    }

    static int Load(BundleObject& bundle, const ServiceDirective& service) {
        return ServiceLoader(bundle).Load(service);
    }

    /// Has ACE itself load a service.
    static int Process(const ServiceDirective& service) {
        return ACE_Service_Config::current()->process_directive(service.directive.c_str());
    }

    /// Has ACE load a service so often, which is removed again.
    void LeaveGaps(int count) {
        for (int round = 0; round < count; ++round) {
            EXPECT_EQ(0, Process(Directive("a1")));
            m_a.RemoveServiceObject("a1");
        }
    }

    /// How many the repository has, taken or free.
    static std::size_t Places() { return ACE_Service_Repository::instance()->current_size(); }

    /// Nothing is left of a service that did not come up.
    void ExpectGone(const std::string& service) {
        EXPECT_FALSE(IsInRepository(service));
        EXPECT_THAT(m_a.m_serviceObjectMap, IsEmpty());
        EXPECT_THAT(m_a.m_vecServiceNames, IsEmpty());
    }

    TestBundle m_a{"fx_hooked_a"};
    TestBundle m_b{"fx_hooked_b"};
};

// ---- Ready --------------------------------------------------------------------------------------

TEST_F(ServiceLoaderTest, AServiceWhoseInitReturnsZeroIsReady) {
    EXPECT_EQ(0, Load(m_a, Directive("a1")));
    EXPECT_THAT(Done(), ElementsAre("a1 ctor", "a1 init"));
    EXPECT_THAT(Reported("bundledef"), ElementsAre(Starting("a1"), Ready("a1")));
    EXPECT_TRUE(IsInRepository("a1"));
    EXPECT_THAT(m_a.m_vecServiceNames, ElementsAre("a1"));
    EXPECT_NE(nullptr, test::FindInterface(m_a, "a1"));
}

TEST_F(ServiceLoaderTest, ItsInterfaceIsForOthersOnceItIsReady) {
    bool isForOthers = true;
    At("a1 init", [this, &isForOthers] {
        EXPECT_TRUE(CanBeDoneElsewhere([&] { isForOthers = test::FindInterface(m_a, "a1") != nullptr; }));
        return 0;
    });
    EXPECT_EQ(0, Load(m_a, Directive("a1")));
    EXPECT_FALSE(isForOthers);
    EXPECT_TRUE(CanBeDoneElsewhere([&] { isForOthers = test::FindInterface(m_a, "a1") != nullptr; }));
    EXPECT_TRUE(isForOthers);
}

TEST_F(ServiceLoaderTest, AServiceMayComeAndGoAgainAndAgain) {
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(0, Load(m_a, Directive("a1")));
        m_a.RemoveServiceObject("a1");
        ExpectGone("a1");
    }
    EXPECT_EQ(400U, Done().size());  // made, initialised, finalised and destroyed
}

TEST_F(ServiceLoaderTest, AReloadLeavesNothingBehindThatLaterOnesSearch) {
    EXPECT_EQ(0, Load(m_b, Directive("b1")));
    const std::size_t before = Places();
    for (int round = 0; round < 1000; ++round) {
        for (const char* const name : {"a1", "a2"}) ASSERT_EQ(0, Load(m_a, Directive(name)));
        for (const char* const name : {"a1", "a2"}) m_a.RemoveServiceObject(name);
    }
    EXPECT_EQ(before + 2, Places());
    EXPECT_TRUE(IsInRepository("b1"));
}

TEST_F(ServiceLoaderTest, ServicesThatAreReloadedInTurnTakeEachOthersPlaces) {
    for (const char* const name : {"a1", "a2"}) ASSERT_EQ(0, Load(m_a, Directive(name)));
    const std::size_t before = Places();
    for (int round = 0; round < 100; ++round) {
        const char* const name = round % 2 == 0 ? "a1" : "a2";
        m_a.RemoveServiceObject(name);
        ASSERT_EQ(0, Load(m_a, Directive(name)));
    }
    EXPECT_EQ(before, Places());
    EXPECT_THAT(m_a.m_vecServiceNames, ElementsAre("a1", "a2"));
}

TEST_F(ServiceLoaderTest, AServiceMayHaveOthersComeAndGoWhileItIsBroughtUp) {
    At("a1 init", [this] {
        const std::size_t before = Places();
        for (int round = 0; round < 10; ++round) {
            EXPECT_EQ(0, Load(m_b, Directive("b1")));
            m_b.RemoveServiceObject("b1");
            EXPECT_EQ(before + 1, Places());
        }
        return 0;
    });
    EXPECT_EQ(0, Load(m_a, Directive("a1")));
    EXPECT_TRUE(IsInRepository("a1"));
    m_a.RemoveServiceObject("a1");
    ExpectGone("a1");
}

TEST_F(ServiceLoaderTest, PlacesThatACEHasCountedStayWhileItLoadsAnotherLibrary) {
    LeaveGaps(20);
    At("host init", [this] {
        const std::size_t before = Places();
        EXPECT_LE(20U, before);
        for (int round = 0; round < 10; ++round) {
            EXPECT_EQ(0, Load(m_b, Directive("b1")));
            EXPECT_LE(before, Places());
            m_b.RemoveServiceObject("b1");
        }
        EXPECT_EQ(before + 1, Places());  // that of the host's static service has none behind it
        return 0;
    });
    EXPECT_EQ(0, Process(Directive("host", kHost)));
    EXPECT_TRUE(IsDone("host init"));
}

// ACE gives the static services that came while it loaded a library a hold on it.
TEST_F(ServiceLoaderTest, AStaticServiceHasItsLibraryThoughServicesComeAndGoWhileItIsLoaded) {
    LeaveGaps(20);
    At("host init", [this] {
        for (int round = 0; round < 3; ++round) {
            EXPECT_EQ(0, Load(m_b, Directive("b1")));
            m_b.RemoveServiceObject("b1");
        }
        return 0;
    });
    ASSERT_EQ(0, Process(Directive("host", kHost)));
    const ACE_Service_Type* found = nullptr;
    ASSERT_EQ(0, ACE_Service_Repository::instance()->find("fx_static", &found));
    ASSERT_TRUE(found->dll().get_handle() != ACE_SHLIB_INVALID_HANDLE);
    ACE_Service_Config::remove("host");
    ServiceLibraries::Note(kHost);
    ServiceLibraries::CloseUnused();
    ACE_Service_Config::remove("fx_static");
    EXPECT_TRUE(IsDone("fx_static dtor"));
}

TEST_F(ServiceLoaderTest, AServiceMayBringUpAnotherWhileItInitialises) {
    int inner = -99;
    At("a1 init", [this, &inner] {
        inner = Load(m_b, Directive("b1"));
        return 0;
    });
    EXPECT_EQ(0, Load(m_a, Directive("a1")));
    EXPECT_EQ(0, inner);
    EXPECT_THAT(Done(), ElementsAre("a1 ctor", "a1 init", "b1 ctor", "b1 init"));
    EXPECT_NE(nullptr, test::FindInterface(m_b, "b1"));
}

// ---- Gone ---------------------------------------------------------------------------------------

TEST_F(ServiceLoaderTest, WhatItsInitReturnsIsTheResultAndTheServiceIsGone) {
    struct Failure {
        int ofInit;
        int result;
    };
    const Failure failures[] = {{3, 3}, {1, 1}, {-2, -2}, {-1, 1}};  // -1 is the configurator's own failure
    for (const Failure& failure : failures) {
        SCOPED_TRACE(failure.ofInit);
        At("a1 init", [&failure] { return failure.ofInit; });
        const std::size_t before = Done().size();
        EXPECT_EQ(failure.result, Load(m_a, Directive("a1")));
        EXPECT_EQ(Failed(Directive("a1"), failure.result), Reported("bundledef").back());
        EXPECT_FALSE(IsDone("a1 fini"));  // of what was never initialised
        EXPECT_EQ("a1 dtor", Done().back());
        EXPECT_EQ(before + 3, Done().size());
        ExpectGone("a1");
    }
}

TEST_F(ServiceLoaderTest, AnInitThatThrowsIsAFailure) {
    const test::LeaksAllowed ofTheParser;
    At("a1 init", []() -> int { throw std::runtime_error("not today"); });
    EXPECT_EQ(-1, Load(m_a, Directive("a1")));
    const test::Trace reported = Reported("bundledef");
    ASSERT_EQ(3U, reported.size());
    EXPECT_EQ(Starting("a1"), reported[0]);
    EXPECT_THAT(reported[1], EndsWith(" 1 Error: Initialisation of service a1 threw: not today\n"));
    EXPECT_EQ(Failed(Directive("a1"), -1), reported[2]);
    EXPECT_TRUE(BundleIsFree());
    ExpectGone("a1");
}

TEST_F(ServiceLoaderTest, AConstructorThatThrowsIsAFailure) {
    At("a1 ctor", []() -> int { throw 5; });
    EXPECT_EQ(1, Load(m_a, Directive("a1")));
    EXPECT_THAT(Done(), ElementsAre("a1 ctor"));
    EXPECT_THAT(Reported("bundledef"), ElementsAre(Starting("a1"), Failed(Directive("a1"), 1)));
    ExpectGone("a1");
}

TEST_F(ServiceLoaderTest, AfterAFailureTheNextServiceIsLoadedAsIfNothingHadHappened) {
    const test::LeaksAllowed ofTheParser;
    At("a1 init", []() -> int { throw std::runtime_error("not today"); });
    EXPECT_EQ(-1, Load(m_a, Directive("a1")));
    EXPECT_EQ(0, Load(m_a, Directive("a2")));
    At("a1 init", [] { return 0; });
    EXPECT_EQ(0, Load(m_a, Directive("a1")));
    EXPECT_THAT(m_a.m_vecServiceNames, ElementsAre("a2", "a1"));
}

TEST_F(ServiceLoaderTest, AFactoryOrALibraryThatIsMissingIsAFailure) {
    for (const ServiceDirective& service : {Directive("none"), Directive("a1", "libzo_test_missing")}) {
        SCOPED_TRACE(service.directive);
        EXPECT_EQ(1, Load(m_a, service));
        test::Trace reported = Reported("bundledef");
        ASSERT_LE(3U, reported.size());
        reported.erase(reported.begin(), reported.end() - 3);
        EXPECT_THAT(reported, ElementsAre(Starting(service.service), Failed(service, 1), NotFound(service.service)));
        EXPECT_THAT(Done(), IsEmpty());
        ExpectGone(service.service);
    }
}

TEST_F(ServiceLoaderTest, AFailedServiceTakesTheOneOfAnEarlierLoadingOutOfTheTable) {
    Add("a", nullptr);
    m_bundle.UnLoadAllServiceObjects();
    EXPECT_EQ(1, Load(m_bundle, Directive("a", "libzo_test_missing")));
    EXPECT_THAT(AllServices(), IsEmpty());
    EXPECT_THAT(m_trace, ElementsAre("fini a"));
}

// ---- Namesakes ----------------------------------------------------------------------------------

TEST_F(ServiceLoaderTest, ANamesakeOfAnotherBundleIsEndedBeforeTheServiceIsMade) {
    auto* const namesake = new TestService(m_trace, "bundle", "a1");
    Install("a1", namesake);
    At("a1 ctor", [this] {
        EXPECT_THAT(m_trace, ElementsAre("fini a1", "dtor a1"));
        return 0;
    });
    EXPECT_EQ(0, Load(m_a, Directive("a1")));
    EXPECT_THAT(Done(), ElementsAre("a1 ctor", "a1 init"));
    EXPECT_THAT(Reported("bundledef"), ElementsAre(Starting("a1"), Ready("a1")));
}

TEST_F(ServiceLoaderTest, ANamesakeIsFinalisedFirstEvenIfItThrows) {
    const TestService::Action onFini = [] {
        EXPECT_TRUE(CanBeDoneElsewhere([] { IsInRepository("a"); }));
        throw std::runtime_error("not now");
    };
    auto* const namesake = new TestService(m_trace, "nowhere", "a");
    namesake->onFini = &onFini;
    Install("a", namesake);
    EXPECT_EQ(1, Load(m_bundle, Directive("a", "libzo_test_missing")));
    EXPECT_THAT(m_trace, ElementsAre("fini a", "dtor a"));
    EXPECT_FALSE(IsInRepository("a"));
    const test::Trace reported = Reported("bundledef");
    ASSERT_LE(2U, reported.size());
    EXPECT_THAT(reported[1], EndsWith(" 1 Error: fini of service a threw: not now\n"));
}

TEST_F(ServiceLoaderTest, AServiceThatThrowsDoesNotKeepItsNamesakesFromBeingEnded) {
    const TestService::Action onFini = [] { throw std::runtime_error("not now"); };
    std::vector<ServiceEntry> entries;
    for (const char* const name : {"a", "b"}) {
        Add(name).onFini = &onFini;
        entries.push_back(ServiceRepository().Take(name));
    }
    FinalizeServices("a", entries);
    EXPECT_THAT(m_trace, ElementsAre("fini a", "dtor a", "fini b", "dtor b"));
    EXPECT_EQ(2U, Reported("bundledef").size());
}

// ---- What ends the loading ----------------------------------------------------------------------

TEST_F(ServiceLoaderTest, NothingIsStartedWhileTheManagerIsFinalising) {
    BundleMgr::Instance()->SetMgrPhase(MGR_PHASE_FINI);
    m_a.SetState(BUNDLE_STATE_FINIED);  // which is looked at second
    EXPECT_EQ(-1, Load(m_a, Directive("a1")));
    EXPECT_THAT(Done(), IsEmpty());
    EXPECT_THAT(Reported("bundledef"), IsEmpty());
}

TEST_F(ServiceLoaderTest, NothingIsStartedForAFinalisedBundle) {
    m_a.SetState(BUNDLE_STATE_FINIED);
    EXPECT_EQ(1, Load(m_a, Directive("a1")));
    EXPECT_THAT(Done(), IsEmpty());
    EXPECT_THAT(Reported("bundledef"), ElementsAre(Stopped("a1")));
}

TEST_F(ServiceLoaderTest, WhatEndsTheLoadingWhileItWaitsForItsTurnIsSeen) {
    auto turn = std::make_unique<ACE_Guard<ACE_Recursive_Thread_Mutex>>(ACE_Service_Repository::instance()->lock());
    int ofManager = -99;
    const Elsewhere loader([&] { ofManager = Load(m_a, Directive("a1")); });
    EXPECT_FALSE(loader.Finishes(std::chrono::milliseconds(20)));
    BundleMgr::Instance()->SetMgrPhase(MGR_PHASE_FINI);
    turn.reset();
    EXPECT_TRUE(loader.Finishes());
    EXPECT_EQ(-1, ofManager);
    EXPECT_THAT(Done(), IsEmpty());
}

// ---- On several threads -------------------------------------------------------------------------

TEST_F(ServiceLoaderTest, OneServiceAtATimeIsBroughtUp) {
    std::atomic<bool> goOn{false};
    At("a1 init", [&goOn] { return WaitFor([&goOn] { return goOn.load(); }) ? 0 : 1; });
    const Elsewhere first([this] { EXPECT_EQ(0, Load(m_a, Directive("a1"))); });
    ASSERT_TRUE(WaitFor([] { return IsDone("a1 init"); }));
    const Elsewhere second([this] { EXPECT_EQ(0, Load(m_b, Directive("b1"))); });
    EXPECT_FALSE(second.Finishes(std::chrono::milliseconds(20)));
    EXPECT_FALSE(IsDone("b1 ctor"));
    goOn = true;
    EXPECT_TRUE(first.Finishes());
    EXPECT_TRUE(second.Finishes());
    EXPECT_THAT(Done(), ElementsAre("a1 ctor", "a1 init", "b1 ctor", "b1 init"));
}

TEST_F(ServiceLoaderTest, LoadersOnManyThreadsBringUpEachOfTheirServices) {
    std::list<Elsewhere> threads;
    for (const char* const name : {"a1", "a2", "b1", "b2"}) {
        threads.emplace_back([this, name] {
            TestBundle& bundle = name[0] == 'a' ? m_a : m_b;
            for (int round = 0; round < 25; ++round) {
                EXPECT_EQ(0, Load(bundle, Directive(name)));
                bundle.RemoveServiceObject(name);
            }
        });
    }
    for (const Elsewhere& thread : threads) EXPECT_TRUE(thread.Finishes());
    EXPECT_EQ(400U, Done().size());
}

TEST_F(ServiceLoaderTest, ALoaderIsKnownToAllThreadsForItsLife) {
    EXPECT_FALSE(ServiceLoader::Any());
    {
        const ServiceLoader loader(m_a);
        const ServiceLoader another(m_b);
        bool isKnown = false;
        EXPECT_TRUE(CanBeDoneElsewhere([&isKnown] { isKnown = ServiceLoader::Any(); }));
        EXPECT_TRUE(isKnown);
    }
    EXPECT_FALSE(ServiceLoader::Any());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
