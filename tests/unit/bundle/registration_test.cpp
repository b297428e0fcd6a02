#include <dlfcn.h>

#include <stdexcept>

#include "bundletest.h"
#include "support/capture.h"

namespace {

// Made while the program starts, before main and before googletest runs.
class StartupBundle : public test::TestBundle {
public:
    StartupBundle() : TestBundle("startup") {}
};

class CountedService : public NS_BUNDLEMGR1::ServiceObjectBase {
public:
    CountedService() : ServiceObjectBase("startup", "counted") { ++s_count; }
    ~CountedService() override { --s_count; }
    void ExitThreads() override {}

    static int s_count;
};

int CountedService::s_count = 0;

class ThrowingService : public NS_BUNDLEMGR1::ServiceObjectBase {
public:
    ThrowingService() : ServiceObjectBase("startup", "throwing") { throw std::runtime_error("no licence"); }
    void ExitThreads() override {}
};

}  // namespace

ZO_BUNDLE(StartupBundle);
ZO_SERVICE_FACTORY(CountedService, counted);
ZO_SERVICE_FACTORY(ThrowingService, throwing);

namespace NS_BUNDLEMGR1 {
namespace {

using test::StdoutOf;
using test::TestBundle;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;
using testing::Pair;

class RegistrationTest : public test::BundleTest {
protected:
    TestBundle& Startup() { return *dynamic_cast<TestBundle*>(BundleMgr::Instance()->GetBundle("startup")); }
};

// ---- ZO_BUNDLE ---------------------------------------------------------------------------------

TEST_F(RegistrationTest, ABundleIsThereBeforeMain) {
    BundleObject* const bundle = BundleMgr::Instance()->GetBundle("startup");
    ASSERT_THAT(bundle, NotNull());
    EXPECT_NE(nullptr, dynamic_cast<StartupBundle*>(bundle));
    EXPECT_EQ(BUNDLE_STATE_LOADED, bundle->GetState());
}

class DyingBundle : public TestBundle {
public:
    DyingBundle() : TestBundle("dying") {}
    ~DyingBundle() override { ++s_deaths; }
    static int s_deaths;
};

int DyingBundle::s_deaths = 0;

TEST_F(RegistrationTest, TheBundleIsRegisteredAndDiesWithItsRegistration) {
    {
        const BundleRegistration registration([]() -> BundleObject* { return new DyingBundle; });
        EXPECT_NE(nullptr, dynamic_cast<DyingBundle*>(BundleMgr::Instance()->GetBundle("dying")));
        EXPECT_EQ(0, DyingBundle::s_deaths);
    }
    EXPECT_EQ(1, DyingBundle::s_deaths);
}

TEST_F(RegistrationTest, TheServicesOfABundleThatWasNotStoppedEndBeforeIt) {
    {
        const BundleRegistration registration([]() -> BundleObject* { return new DyingBundle; });
        const test::TestService::Action onFini = [] {
            EXPECT_THAT(BundleMgr::Instance()->GetBundle("dying"), NotNull());
        };
        auto* const service = new test::TestService(m_trace, "dying", "svc");
        service->onFini = &onFini;
        test::Install("svc", service);
    }
    EXPECT_THAT(m_trace, ElementsAre("fini svc", "dtor svc"));
}

TEST_F(RegistrationTest, TheServicesOfAFinalisedBundleAreNoMoreItsBusiness) {
    {
        const BundleRegistration registration([]() -> BundleObject* { return new DyingBundle; });
        test::Install("svc", new test::TestService(m_trace, "dying", "svc"));
        BundleMgr::Instance()->GetBundle("dying")->SetState(BUNDLE_STATE_FINIED);
    }
    EXPECT_TRUE(test::IsInRepository("svc"));
}

std::string ThisProgram() {
    Dl_info info{};
    dladdr(reinterpret_cast<const void*>(&ThisProgram), &info);
    return info.dli_fname;
}

TEST_F(RegistrationTest, ABundleThatCannotBeCreatedIsReported) {
    const std::string text = "Error: The bundle of " + ThisProgram() + " was not created: no licence\n";
    EXPECT_EQ(
        text, StdoutOf([] {
            const BundleRegistration registration([]() -> BundleObject* { throw std::runtime_error("no licence"); });
        }));
    const auto reported = Reported("registration");
    ASSERT_EQ(1U, reported.size());
    EXPECT_THAT(reported.front(), testing::EndsWith(" 1 " + text));
}

TEST_F(RegistrationTest, WhatIsNoExceptionClassIsReportedToo) {
    EXPECT_EQ("Error: The bundle of " + ThisProgram() + " was not created: an exception of unknown type\n",
              StdoutOf([] { const BundleRegistration registration([]() -> BundleObject* { throw 5; }); }));
}

class NamelessBundle : public TestBundle {
public:
    ~NamelessBundle() override { ++s_deaths; }
    std::string GetName() override { throw std::runtime_error("no name"); }
    static int s_deaths;
};

int NamelessBundle::s_deaths = 0;

TEST_F(RegistrationTest, ABundleThatThrowsAtItsRegistrationIsReportedAndStillDies) {
    EXPECT_EQ("Error: The bundle of " + ThisProgram() + " was not created: no name\n", StdoutOf([] {
                  const BundleRegistration registration([]() -> BundleObject* { return new NamelessBundle; });
                  EXPECT_EQ(0, NamelessBundle::s_deaths);
              }));
    EXPECT_EQ(1, NamelessBundle::s_deaths);
}

// ---- ZO_SERVICE_FACTORY ---------------------------------------------------------------------------

TEST_F(RegistrationTest, AFactoryMakesAServiceAndSetsItsExterminator) {
    ACE_Service_Object_Exterminator exterminator = nullptr;
    ACE_Service_Object* const service = _make_counted(&exterminator);
    ASSERT_THAT(service, NotNull());
    EXPECT_EQ(1, CountedService::s_count);
    EXPECT_THAT(Startup().m_serviceObjectMap, ElementsAre(Pair("counted", dynamic_cast<ServiceObjectBase*>(service))));

    ASSERT_NE(nullptr, exterminator);
    exterminator(service);
    EXPECT_EQ(0, CountedService::s_count);
}

TEST_F(RegistrationTest, AFactoryMayBeCalledWithoutRoomForTheExterminator) {
    ACE_Service_Object* const service = _make_counted(nullptr);
    EXPECT_THAT(service, NotNull());
    delete service;
}

TEST_F(RegistrationTest, AServiceThatCannotBeCreatedIsReportedAndNull) {
    ACE_Service_Object_Exterminator exterminator = nullptr;
    ACE_Service_Object* service = nullptr;
    const std::string text = "Error: Service throwing was not created: no licence\n";
    EXPECT_EQ(text, StdoutOf([&] { service = _make_throwing(&exterminator); }));
    EXPECT_THAT(service, IsNull());
    const auto reported = Reported("registration");
    ASSERT_EQ(1U, reported.size());
    EXPECT_THAT(reported.front(), testing::EndsWith(" 1 " + text));
}

// Its base had registered it by then.
TEST_F(RegistrationTest, AServiceThatCouldNotBeCreatedIsNotCalled) {
    _make_throwing(nullptr);
    EXPECT_THAT(Startup().m_vecServiceNames, ElementsAre("throwing"));
    Startup().WaitThreadExit();
    EXPECT_THAT(test::FindInterface(Startup(), "throwing"), IsNull());
    Startup().RemoveServiceObject("throwing");
    EXPECT_THAT(Startup().m_vecServiceNames, IsEmpty());
}

TEST_F(RegistrationTest, FactoriesLeaveTheLibraryUnderTheirNames) {
    EXPECT_EQ(reinterpret_cast<void*>(&_make_counted), dlsym(RTLD_DEFAULT, "_make_counted"));
    EXPECT_EQ(reinterpret_cast<void*>(&_make_throwing), dlsym(RTLD_DEFAULT, "_make_throwing"));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
