// A bundle has its services finalised.
#include <chrono>
#include <stdexcept>

#include <gmock/gmock.h>

#include "bundledeftest.h"
#include "support/elsewhere.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::Begin;
using test::BundleObjectTest;
using test::Elsewhere;
using test::Finish;
using test::Install;
using test::IsInRepository;
using test::Services;
using test::TestService;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;

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

}  // namespace
}  // namespace NS_BUNDLEMGR1
