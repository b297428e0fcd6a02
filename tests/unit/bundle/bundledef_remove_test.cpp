// One service taken out of its bundle.
#include <atomic>
#include <chrono>
#include <stdexcept>

#include <gmock/gmock.h>

#include "bundledeftest.h"
#include "support/capture.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::BundleObjectTest;
using test::CanBeDoneElsewhere;
using test::Elsewhere;
using test::Install;
using test::IsInRepository;
using test::Services;
using test::StdoutOf;
using test::TestService;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

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

}  // namespace
}  // namespace NS_BUNDLEMGR1
