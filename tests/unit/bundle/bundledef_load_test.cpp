// A bundle brings up the services of its svc.cfg, as far as that needs no library.
#include <optional>

#include <gmock/gmock.h>

#include "bundledeftest.h"
#include "support/capture.h"
#include "support/environment.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::BundleObjectTest;
using test::StdoutOf;
using test::Trace;
using testing::ElementsAre;
using testing::IsEmpty;

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

}  // namespace
}  // namespace NS_BUNDLEMGR1
