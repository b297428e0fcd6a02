#include <stdexcept>

#include <ace/Service_Config.h>

#include "bundletest.h"
#include "slotstest.h"
#include "src/lifetime/liveservices.h"
#include "src/lifetime/servicebirth.h"
#include "support/capture.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::NamedInterface;
using test::StdoutOf;
using test::TestBundle;
using test::TestService;
using test::Trace;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using testing::Pair;

class ServiceTest : public test::BundleTest {};

TEST_F(ServiceTest, TheSecondNameIsTheServices) {
    const TestService service(m_trace, "bundle", "svc");
    EXPECT_STREQ("svc", service.GetName());
}

TEST_F(ServiceTest, RegistersWithItsBundleUnderItsName) {
    TestService service(m_trace, "bundle", "svc");
    EXPECT_THAT(m_bundle.m_serviceObjectMap, ElementsAre(Pair("svc", &service)));
    EXPECT_THAT(m_bundle.m_vecServiceNames, ElementsAre("svc"));
    EXPECT_EQ("", Log());
}

TEST_F(ServiceTest, TheDestructorLeavesTheTableAndTheInterface) {
    int deletions = 0;
    NamedInterface interface("named", &deletions);
    {
        TestService service(m_trace, "bundle", "svc");
        service.m_pInterface = &interface;
    }
    EXPECT_EQ(1U, m_bundle.m_serviceObjectMap.count("svc"));
    EXPECT_EQ(0, deletions);
    EXPECT_EQ("named", interface.GetDescription());
}

TEST_F(ServiceTest, WithoutItsBundleItIsReportedAndWorks) {
    std::unique_ptr<TestService> service;
    const std::string printed = StdoutOf([&] { service = std::make_unique<TestService>(m_trace, "nowhere", "svc"); });
    EXPECT_EQ("[ServiceObjectBase] Call GetBundle() get bundle null.svc,nowhere", printed);
    EXPECT_THAT(Reported("servicedef"),
                ElementsAre("33 3 [ServiceObjectBase] Call GetBundle() get bundle null.svc,nowhere"));
    EXPECT_STREQ("svc", service->GetName());
    EXPECT_EQ(0, service->init(0, nullptr));
    EXPECT_EQ(0, service->fini());
    EXPECT_THAT(m_bundle.m_serviceObjectMap, IsEmpty());
}

TEST_F(ServiceTest, FiniReportsOncePerCall) {
    TestService service(m_trace, "bundle", "svc");
    EXPECT_EQ("\n===== Start to Finalize -[ svc ] =====\n", StdoutOf([&] { EXPECT_EQ(0, service.fini()); }));
    EXPECT_EQ(0, service.ServiceObjectBase::fini());
    EXPECT_THAT(Reported("servicedef"), ElementsAre("55 3 \n===== Start to Finalize -[ svc ] =====\n",
                                                    "55 3 \n===== Start to Finalize -[ svc ] =====\n"));
    EXPECT_EQ(1U, m_bundle.m_serviceObjectMap.count("svc"));
}

class RenamedService : public TestService {
public:
    using TestService::TestService;
    const char* GetName() const override { return "renamed"; }
};

TEST_F(ServiceTest, FiniAsksForTheNameVirtually) {
    RenamedService service(m_trace, "bundle", "svc");
    service.fini();
    EXPECT_THAT(Reported("servicedef"), ElementsAre("55 3 \n===== Start to Finalize -[ renamed ] =====\n"));
    EXPECT_EQ(1U, m_bundle.m_serviceObjectMap.count("svc"));
}

TEST_F(ServiceTest, FiniLeavesTheInterface) {
    TestService service(m_trace, "bundle", "svc");
    NamedInterface interface;
    service.m_pInterface = &interface;
    service.fini();
    EXPECT_EQ(&interface, service.GetInterface());
}

TEST_F(ServiceTest, TheInterfaceIsDeletedOnce) {
    int deletions = 0;
    TestService service(m_trace, "bundle", "svc");
    EXPECT_THAT(service.GetInterface(), IsNull());
    service.RemoveInterface();
    EXPECT_EQ(0, deletions);

    service.m_pInterface = new NamedInterface("named", &deletions);
    service.RemoveInterface();
    EXPECT_EQ(1, deletions);
    EXPECT_THAT(service.GetInterface(), IsNull());
    service.RemoveInterface();
    EXPECT_EQ(1, deletions);
}

TEST_F(ServiceTest, SetInterfaceAndUnRegistSvcDoNothingOfThemselves) {
    TestService service(m_trace, "bundle", "svc");
    NamedInterface interface;
    service.m_pInterface = &interface;
    service.SetInterface();
    service.UnRegistSvc();
    EXPECT_EQ(&interface, service.GetInterface());
    EXPECT_EQ(1U, m_bundle.m_serviceObjectMap.count("svc"));
}

class PlainService : public ServiceObjectBase {
public:
    PlainService() : ServiceObjectBase("bundle", "plain") {}
    void ExitThreads() override {}
};

TEST_F(ServiceTest, InitAndInfoStayThoseOfAce) {
    PlainService service;
    EXPECT_EQ(0, service.init(0, nullptr));
    EXPECT_EQ(0, service.info(nullptr, 0));
    EXPECT_EQ(0, service.suspend());
    EXPECT_EQ(0, service.resume());
    EXPECT_EQ(nullptr, service.reactor());
    EXPECT_EQ(ACE_INVALID_HANDLE, service.get_handle());
}

TEST_F(ServiceTest, StaysLiveWhenItCallsItsFiniByItself) {
    TestService service(m_trace, "bundle", "svc");
    EXPECT_NE(0U, LiveServices::IdOf(&service));
    service.fini();
    EXPECT_NE(0U, LiveServices::IdOf(&service));
}

TEST_F(ServiceTest, IsFoundAndAskedForItsThreadsAfterItRestartedItself) {
    NamedInterface published;
    TestService& service = Add("svc");
    service.m_pInterface = &published;
    service.fini();
    service.init(0, nullptr);
    EXPECT_EQ(&published, test::FindInterface(m_bundle, "svc"));
    m_bundle.WaitThreadExit();
    EXPECT_THAT(m_trace, testing::ElementsAre("fini svc", "exit svc"));
}

TEST_F(ServiceTest, IsNotLiveWhenTheConfiguratorFreedItWithoutItsDestructor) {
    {
        const ServiceBirth birth("bundle", &m_bundle);
        Add("svc", nullptr);
        birth.Publish();
    }
    ACE_Service_Config::remove("svc");
    m_bundle.WaitThreadExit();
    EXPECT_THAT(m_trace, testing::ElementsAre("fini svc"));
}

TEST_F(ServiceTest, IsNotLiveAfterItsDestructor) {
    auto service = Make("svc");
    const ServiceObjectBase* const address = service.get();
    service.reset();
    EXPECT_EQ(0U, LiveServices::IdOf(address));
}

class RefusingBundle : public TestBundle {
public:
    using TestBundle::TestBundle;
    void RegisterServiceObject(const char*, ServiceObjectBase* service) override {
        refused = service;
        throw std::runtime_error("no more services");
    }
    const ServiceObjectBase* refused = nullptr;
};

TEST_F(ServiceTest, IsNotLiveWhenItsBundleThrew) {
    RefusingBundle refusing("refusing");
    BundleMgr::Instance()->RegisterBundle(&refusing);
    EXPECT_THROW(TestService(m_trace, "refusing", "svc"), std::runtime_error);
    ASSERT_NE(nullptr, refusing.refused);
    EXPECT_EQ(0U, LiveServices::IdOf(refusing.refused));
}

TEST_F(ServiceTest, RegistersThroughTheVirtualOperation) {
    class NotingBundle : public TestBundle {
    public:
        using TestBundle::TestBundle;
        void RegisterServiceObject(const char* serviceName, ServiceObjectBase* service) override {
            noted = serviceName;
            EXPECT_STREQ(serviceName, service->ServiceObjectBase::GetName());
        }
        std::string noted;
    };
    NotingBundle noting("noting");
    BundleMgr::Instance()->RegisterBundle(&noting);
    const TestService service(m_trace, "noting", "svc");
    EXPECT_EQ("svc", noting.noted);
    EXPECT_THAT(noting.m_vecServiceNames, IsEmpty());
}

// ---- The order of the virtual operations, as a caller in another library sees it -------------

class RecordingService : public ServiceObjectBase {
public:
    RecordingService() : ServiceObjectBase("nowhere", "recording") {}
    ~RecordingService() override { s_called = "~"; }

    ACE_HANDLE get_handle() const override { return Called("get_handle"); }
    Reference_Count remove_reference() override { return Called("remove_reference"); }
    int suspend() override { return Called("suspend"); }
    int resume() override { return Called("resume"); }
    void UnRegistSvc() override { Called("UnRegistSvc"); }
    const char* GetName() const override {
        Called("GetName");
        return "a name";
    }
    void ExitThreads() override { Called("ExitThreads"); }
    ServiceInterface* GetInterface() override {
        Called("GetInterface");
        return &m_interface;
    }
    void SetInterface() override { Called("SetInterface"); }
    void RemoveInterface() override { Called("RemoveInterface"); }
    int fini() override { return Called("fini"); }

    static std::string s_called;

private:
    static int Called(const char* operation) {
        s_called = operation;
        return 42;
    }

    NamedInterface m_interface;
};

std::string RecordingService::s_called;

using ServiceSlotsTest = test::SlotsTest<ServiceObjectBase, RecordingService, test::LogTest>;

TEST_F(ServiceSlotsTest, DestructorsComeFirst) {
    ExpectDestructorsFirst();
}

TEST_F(ServiceSlotsTest, AcesOperationsFollow) {
    EXPECT_EQ(42, Call<ACE_HANDLE>(2));
    EXPECT_EQ("get_handle", Called());
    EXPECT_EQ(42, Call<long>(20));
    EXPECT_EQ("remove_reference", Called());
    EXPECT_EQ(42, Call<int>(21));
    EXPECT_EQ("suspend", Called());
    EXPECT_EQ(42, Call<int>(22));
    EXPECT_EQ("resume", Called());
}

TEST_F(ServiceSlotsTest, OwnOperationsComeLast) {
    Call<void>(23);
    EXPECT_EQ("UnRegistSvc", Called());
    EXPECT_STREQ("a name", Call<const char*>(24));
    EXPECT_EQ("GetName", Called());
    Call<void>(25);
    EXPECT_EQ("ExitThreads", Called());
    EXPECT_EQ("named", Call<ServiceInterface*>(26)->GetDescription());
    EXPECT_EQ("GetInterface", Called());
    Call<void>(27);
    EXPECT_EQ("SetInterface", Called());
    Call<void>(28);
    EXPECT_EQ("RemoveInterface", Called());
    EXPECT_EQ(42, Call<int>(29));
    EXPECT_EQ("fini", Called());
}

TEST_F(ServiceSlotsTest, AceReachesFiniThroughItsOwnTable) {
    ACE_Shared_Object* const shared = m_object;
    EXPECT_EQ(42, shared->fini());
    EXPECT_EQ("fini", Called());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
