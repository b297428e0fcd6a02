#include <gmock/gmock.h>

#include <bundlemgr/kit.h>

#include "support/capture.h"
#include "unit/bundle/bundletest.h"

namespace {

using NS_BUNDLEMGR1::InterfaceNotExistException;
using NS_BUNDLEMGR1::ServiceInterface;
using NS_BUNDLEMGR1::ServiceInterfaceProxy;
using test::NamedInterface;
using test::StdoutOf;
using test::Trace;
using testing::ElementsAre;
using testing::IsNull;

/// A service that publishes an interface in its init, and notes what becomes of it.
class PublishingService : public zo::Service {
public:
    explicit PublishingService(Trace& trace) : Service("bundle", "svc"), m_trace(trace) {}

    int init(int, ACE_TCHAR*[]) override {
        m_published = Publish(std::make_unique<NamedInterface>("named", &m_deletions));
        return 0;
    }
    void ExitThreads() override { m_trace.push_back("exit with " + std::to_string(m_deletions) + " deletions"); }
    using Service::Publish;

    NamedInterface* m_published = nullptr;
    int m_deletions = 0;

private:
    Trace& m_trace;
};

class KitServiceTest : public test::BundleTest {
protected:
    KitServiceTest() { ACE_Service_Repository::instance(); }

    NamedInterface* Find() { return ServiceInterfaceProxy<NamedInterface>("svc", "bundle").GetInterface(); }

    PublishingService m_service{m_trace};
};

TEST_F(KitServiceTest, PublishesNothingByItself) {
    EXPECT_THAT(m_service.GetInterface(), IsNull());
    EXPECT_THROW(Find(), InterfaceNotExistException);
}

TEST_F(KitServiceTest, OthersFindWhatItPublishes) {
    m_service.init(0, nullptr);
    EXPECT_EQ(m_service.m_published, m_service.GetInterface());
    EXPECT_EQ(m_service.m_published, Find());
}

TEST_F(KitServiceTest, ItsFiniEndsItsThreadsFirstAndThenWithdrawsItsInterface) {
    m_service.init(0, nullptr);
    ServiceInterfaceProxy<NamedInterface> known("svc", "bundle");
    known.GetInterface();
    EXPECT_EQ("\n===== Start to Finalize -[ svc ] =====\n", StdoutOf([&] { EXPECT_EQ(0, m_service.fini()); }));
    EXPECT_THAT(m_trace, ElementsAre("exit with 0 deletions"));
    EXPECT_EQ(1, m_service.m_deletions);
    EXPECT_THAT(m_service.GetInterface(), IsNull());
    EXPECT_THROW(known.GetInterface(), InterfaceNotExistException);
    EXPECT_THROW(Find(), InterfaceNotExistException);
}

TEST_F(KitServiceTest, FinalisedTwiceItWithdrawsOnce) {
    m_service.init(0, nullptr);
    StdoutOf([&] {
        m_service.fini();
        m_service.fini();
    });
    EXPECT_EQ(1, m_service.m_deletions);
}

TEST_F(KitServiceTest, ARestartPublishesForThoseWhoKnewTheFormerOneToo) {
    m_service.init(0, nullptr);
    ServiceInterfaceProxy<NamedInterface> known("svc", "bundle");
    known.GetInterface();
    StdoutOf([&] { m_service.fini(); });
    m_service.init(0, nullptr);
    EXPECT_EQ(m_service.m_published, known.GetInterface());
    EXPECT_EQ(m_service.m_published, Find());
}

TEST_F(KitServiceTest, PublishesInPlaceOfTheFormerInterface) {
    m_service.init(0, nullptr);
    Find();
    ServiceInterface* const second = m_service.Publish(std::make_unique<NamedInterface>("second"));
    EXPECT_EQ(1, m_service.m_deletions);
    EXPECT_EQ(second, m_service.GetInterface());
    EXPECT_EQ("second", Find()->GetDescription());
}

TEST_F(KitServiceTest, ItsDestructorWithdrawsWhatAnInitLeftThatFailedLater) {
    int deletions = 0;
    ServiceInterfaceProxy<NamedInterface> known("other", "bundle");
    class FailingService : public zo::Service {
    public:
        FailingService() : Service("bundle", "other") {}
        using Service::Publish;
    };
    {
        FailingService service;
        service.Publish(std::make_unique<NamedInterface>("named", &deletions));
        known.GetInterface();
    }
    EXPECT_EQ(1, deletions);
    EXPECT_THROW(known.GetInterface(), InterfaceNotExistException);
}

TEST_F(KitServiceTest, LeavesAloneWhatSomebodyElseHasSetUnderItsName) {
    m_service.init(0, nullptr);
    NamedInterface others("others'");
    SetIFBuf("svc", &others);
    StdoutOf([&] { m_service.fini(); });
    EXPECT_EQ(&others, Find());
}

TEST_F(KitServiceTest, OneWithoutThreadsNeedsNoExitThreads) {
    zo::Service service("bundle", "plain");
    service.ExitThreads();
    EXPECT_EQ(0, service.init(0, nullptr));
    EXPECT_EQ("\n===== Start to Finalize -[ plain ] =====\n", StdoutOf([&] { EXPECT_EQ(0, service.fini()); }));
}

}  // namespace
