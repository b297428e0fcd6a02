// Which bundles are to be loaded, and what becomes of those that cannot be.
#include <filesystem>

#include <gmock/gmock.h>

#include "bundlemgrtest.h"
#include "support/capture.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::BundleMgrTest;
using test::FakeBundle;
using test::InProcessMgr;
using test::StdoutOf;
using test::Trace;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;

TEST_F(BundleMgrTest, CoreBundlesComeBeforeTheConfiguredOnes) {
    WriteConfiguration("Bundle=a\nOther=x\nBundle2=b\nBundle=a\n");
    const char* core[] = {"core2", "core1", nullptr};
    std::list<std::string> names{"forgotten"};
    const std::string printed = StdoutOf([&] { Mgr().GetLoadBundles(names, core); });
    EXPECT_THAT(names, ElementsAre("core2", "core1", "a", "b", "a"));
    EXPECT_EQ("cfg_file " + ConfigurationFile() + " \nm_strCfgFileName=" + ConfigurationFile() + " \n", printed);
}

TEST_F(BundleMgrTest, WithoutACoreBundleArrayThereIsNothingToLoad) {
    WriteConfiguration("Bundle=a\n");
    std::list<std::string> names{"forgotten"};
    EXPECT_EQ("in [BundleMgrImpl::GetLoadBundles] coreBundles is null",
              StdoutOf([&] { Mgr().GetLoadBundles(names, nullptr); }));
    EXPECT_THAT(names, IsEmpty());
    EXPECT_THAT(Reversed(), IsEmpty());
}

TEST_F(BundleMgrTest, WithoutAConfigurationDirectoryNothingIsRead) {
    const char* core[] = {"core", nullptr};
    std::list<std::string> names;
    EXPECT_EQ("", StdoutOf([&] { Mgr().GetLoadBundles(names, core); }));
    EXPECT_THAT(names, ElementsAre("core"));
}

TEST_F(BundleMgrTest, WhatWasConfiguredStaysWhileTheFileOrItsDirectoryIsMissing) {
    FakeBundle& bundle = Add("a");
    Configure("Bundle=a\n");
    std::filesystem::remove(m_dir / "etc/oss_cfg/nbi/conf/bundlemgr.cfg");
    const char* none[] = {nullptr};
    std::list<std::string> names;
    Mgr().GetLoadBundles(names, none);
    EXPECT_THAT(names, ElementsAre("a"));

    m_server.reset();
    Mgr().GetLoadBundles(names, none);
    EXPECT_THAT(names, ElementsAre("a"));
    EXPECT_THAT(Reversed(), ElementsAre(&bundle));
}

TEST_F(BundleMgrTest, TheConfigurationDirectoryIsTheOneThatWasSet) {
    WriteConfiguration("Bundle=a\n");
    m_dir.Write("etc/oss_cfg/nbi/other/bundlemgr.cfg", "Bundle=b\n");
    SetCfgDirPath("other");
    const char* none[] = {nullptr};
    std::list<std::string> names;
    Mgr().GetLoadBundles(names, none);
    SetCfgDirPath("conf");
    EXPECT_THAT(names, ElementsAre("b"));
}

std::string MissingLibrary(const std::string& name) {
    return "1 Load library lib" + name + ".so failed. Error info:\n  lib" + name +
           ".so: cannot open shared object file: No such file or directory\n";
}

TEST_F(BundleMgrTest, AMissingLibraryIsReported) {
    BundleObject* loaded = &Add("other");
    const std::string printed = StdoutOf([&] { loaded = Mgr().LoadBundle("zo_test_missing"); });
    EXPECT_THAT(loaded, IsNull());
    EXPECT_THAT(Reported(), ElementsAre(MissingLibrary("zo_test_missing")));
    EXPECT_EQ("1 " + printed, MissingLibrary("zo_test_missing"));
    EXPECT_TRUE(TableIsFree());
}

TEST_F(BundleMgrTest, ABundleThatIsThereIsNotLoadedAgain) {
    FakeBundle& bundle = Add("a");
    EXPECT_EQ(&bundle, Mgr().LoadBundle("a"));
    EXPECT_THAT(Reported(), ElementsAre("1 Error: Bundles \xEF\xBC\x88"
                                        "a\xEF\xBC\x89 already loaded previously!\n"));
}

TEST_F(BundleMgrTest, ANullEntryCountsAsLoaded) {
    Configure("Bundle=zo_test_missing\n");
    EXPECT_THAT(Reversed(), ElementsAre(IsNull()));
    EXPECT_THAT(Mgr().LoadBundle("zo_test_missing"), IsNull());
    EXPECT_THAT(Reported(), ElementsAre("1 Error: Bundles \xEF\xBC\x88"
                                        "zo_test_missing\xEF\xBC\x89 already loaded previously!\n"));
}

TEST_F(BundleMgrTest, NothingConfiguredIsNothingToDo) {
    EXPECT_EQ(0, Mgr().LoadAllBundles());
    WriteConfiguration("");
    EXPECT_EQ(0, Mgr().LoadAllBundles());
    EXPECT_EQ(0, Mgr().InitAllBundles());
    Mgr().FiniAllBundles();
    EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(BundleMgrTest, EveryBundleThatFailsToLoadCounts) {
    WriteConfiguration("Bundle=zo_test_a\nBundle=zo_test_b\nBundle=zo_test_a\n");
    EXPECT_EQ(-3, Mgr().LoadAllBundles());
    const auto failed = [](const std::string& name) { return "1 Error: Load Bundle " + name + " failed!\n"; };
    EXPECT_THAT(Reported(), ElementsAre("3 Loading... zo_test_a\n", MissingLibrary("zo_test_a"), failed("zo_test_a"),
                                        "3 Loading... zo_test_b\n", MissingLibrary("zo_test_b"), failed("zo_test_b"),
                                        "3 Loading... zo_test_a\n", MissingLibrary("zo_test_a"), failed("zo_test_a")));
}

TEST_F(BundleMgrTest, LoadingForgetsTheBundlesOfBefore) {
    Add("a");
    EXPECT_EQ(0, Mgr().LoadAllBundles());
    EXPECT_THAT(Mgr().GetBundle("a"), IsNull());
    EXPECT_EQ(0, Mgr().InitAllBundles());
    EXPECT_THAT(m_trace, IsEmpty());
}

TEST_F(BundleMgrTest, LoadingGoesThroughTheVirtualOperation) {
    WriteConfiguration("Bundle=b\nBundle=bad\nBundle=a\nBundle=bad\nBundle=b\n");
    InProcessMgr manager;
    EXPECT_EQ(-2, manager.LoadAllBundles());
    EXPECT_THAT(manager.loaded, ElementsAre("b", "bad", "a", "bad", "b"));
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
