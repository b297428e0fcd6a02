// What a bundle knows of itself and of its services.
#include <chrono>
#include <csignal>
#include <list>
#include <stdexcept>

#include <gmock/gmock.h>

#include "bundledeftest.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::BundleObjectTest;
using test::CanBeDoneElsewhere;
using test::Elsewhere;
using test::NamedInterface;
using test::Services;
using test::TestBundle;
using test::TestService;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using testing::Pair;

using BundleObjectDeathTest = BundleObjectTest;

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

TEST_F(BundleObjectTest, ABundleMayHideSomeOfItsServices) {
    class Hiding : public TestBundle {
    public:
        void GetAllServiceObjects(Services& out) override {
            BundleObject::GetAllServiceObjects(out);
            out.erase("hidden");
        }
    };
    class HidingToo : public Hiding {};
    NamedInterface interface;
    HidingToo bundle;
    TestService service(m_trace, "nowhere", "svc");
    service.m_pInterface = &interface;
    for (const char* const name : {"hidden", "shown"}) bundle.RegisterServiceObject(name, &service);
    EXPECT_THAT(test::FindInterface(bundle, "hidden"), IsNull());
    EXPECT_EQ(&interface, test::FindInterface(bundle, "shown"));
}

TEST_F(BundleObjectTest, ABundleNeedNotBeTheFirstBaseOfItsClass) {
    struct First {
        virtual ~First() = default;
        virtual int Answer() { return 42; }
    };
    class Second : public First, public TestBundle {};
    class Overriding : public Second {
    public:
        void GetAllServiceObjects(Services& out) override { out.clear(); }
    };
    NamedInterface interface;
    Second second;
    Overriding overriding;
    TestService service(m_trace, "nowhere", "svc");
    service.m_pInterface = &interface;
    for (TestBundle* const bundle : {static_cast<TestBundle*>(&second), static_cast<TestBundle*>(&overriding)}) {
        bundle->RegisterServiceObject("svc", &service);
    }
    EXPECT_EQ(&interface, test::FindInterface(second, "svc"));
    EXPECT_THAT(test::FindInterface(overriding, "svc"), IsNull());
}

TEST_F(BundleObjectTest, AnExceptionFromTheServiceLeavesTheBundleFree) {
    const TestService::Action onGetInterface = [] { throw std::runtime_error("no interface today"); };
    const auto service = Make("svc");
    service->onGetInterface = &onGetInterface;
    EXPECT_THROW(test::FindInterface(m_bundle, "svc"), std::runtime_error);
    EXPECT_TRUE(BundleIsFree());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
