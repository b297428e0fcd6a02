// A bundle has its services end their threads.
#include <gmock/gmock.h>

#include "bundledeftest.h"
#include "support/capture.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::Begin;
using test::BundleObjectTest;
using test::Finish;
using test::StdoutOf;
using test::TestService;
using test::Trace;
using testing::ElementsAre;

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

}  // namespace
}  // namespace NS_BUNDLEMGR1
