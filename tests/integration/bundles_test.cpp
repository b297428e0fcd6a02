// Bundles in a host, from their libraries to their end.
#include "hosttest.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class BundlesTest : public HostTest {};

std::string LoadedBundle(const std::string& name) {
    return Loading(name) + name + ": created\n" + Opened(name);
}

TEST_F(BundlesTest, LiveFromLoadToDestroy) {
    ConfigureBundles("Bundle=zo_base_bundle\nBundle=fx_second\nBundle=fx_first\n");
    ConfigureServices("fx_first", "service=fx_first:M1\nservice=fx_first:P1\n");
    ConfigureServices("fx_second", "service=fx_second:M2\n");
    ConfigureServices("zo_base_bundle", "service=zo_base_bundle:BaseSvc\n");

    EXPECT_EQ("> corba-gone: done\n> events: 1\n" +                                                        //
                  LoadedBundle("zo_base_bundle") + LoadedBundle("fx_second") + LoadedBundle("fx_first") +  //
                  "> load: 0\n" +                                                                          //
                  InitBundle("zo_base_bundle") + StartService("BaseSvc") + Loaded("zo_base_bundle") +
                  InitBundle("fx_first") + StartService("M1") + StartService("P1") + Loaded("fx_first") +
                  InitBundle("fx_second") + StartService("M2") + Loaded("fx_second") +                            //
                  "> init: 0\n> reverse:  fx_first fx_second zo_base_bundle\n" +                                  //
                  FiniBundle("zo_base_bundle") + EndService("BaseSvc") +                                          //
                  FiniBundle("fx_second") + EndService("M2") +                                                    //
                  FiniBundle("fx_first") + "P1: fini\n" + Finalize("P1") + EndService("M1") + "> fini: done\n" +  //
                  BeginExit("fx_first", "P1") + FinishExit("fx_first", "P1") + BeginExit("fx_first", "M1") +
                  FinishExit("fx_first", "M1") + BeginExit("fx_second", "M2") + FinishExit("fx_second", "M2") +
                  BeginExit("zo_base_bundle", "BaseSvc") + FinishExit("zo_base_bundle", "BaseSvc") +  //
                  "> wait: done\n> fini-events: done\n> destroy-events: done\n" +                     //
                  "fx_first: destroyed\nfx_second: destroyed\nzo_base_bundle: destroyed\n> destroy: done\n"
                  "> destroy-log: done\n",
              Run("corba-gone events load init reverse fini wait fini-events destroy-events destroy destroy-log"));

    EXPECT_THAT(
        Records(),
        ElementsAre("bundlemgrimpl::3 " + Loading("zo_base_bundle"), "bundlemgrimpl::1 " + Opened("zo_base_bundle"),
                    "bundlemgrimpl::3 " + Loading("fx_second"), "bundlemgrimpl::1 " + Opened("fx_second"),
                    "bundlemgrimpl::3 " + Loading("fx_first"), "bundlemgrimpl::1 " + Opened("fx_first"),
                    "bundlemgrimpl::3 " + InitBundle("zo_base_bundle"), "bundledef:257:3 " + InitService("BaseSvc"),
                    "bundledef:267:3 " + Ready("BaseSvc"), "bundlemgrimpl::3 " + InitBundle("fx_first"),
                    "bundledef:257:3 " + InitService("M1"), "bundledef:267:3 " + Ready("M1"),
                    "bundledef:257:3 " + InitService("P1"), "bundledef:267:3 " + Ready("P1"),
                    "bundlemgrimpl::3 " + InitBundle("fx_second"), "bundledef:257:3 " + InitService("M2"),
                    "bundledef:267:3 " + Ready("M2"), "bundlemgrimpl::3 " + FiniBundle("zo_base_bundle"),
                    "servicedef:55:3 " + Finalize("BaseSvc"), "bundlemgrimpl::3 " + FiniBundle("fx_second"),
                    "servicedef:55:3 " + Finalize("M2"), "bundlemgrimpl::3 " + FiniBundle("fx_first"),
                    "servicedef:55:3 " + Finalize("P1"), "servicedef:55:3 " + Finalize("M1"),
                    "bundledef:79:3 " + BeginExit("fx_first", "P1"), "bundledef:90:3 " + FinishExit("fx_first", "P1"),
                    "bundledef:79:3 " + BeginExit("fx_first", "M1"), "bundledef:90:3 " + FinishExit("fx_first", "M1"),
                    "bundledef:79:3 " + BeginExit("fx_second", "M2"), "bundledef:90:3 " + FinishExit("fx_second", "M2"),
                    "bundledef:79:3 " + BeginExit("zo_base_bundle", "BaseSvc"),
                    "bundledef:90:3 " + FinishExit("zo_base_bundle", "BaseSvc")));
}

TEST_F(BundlesTest, CoreBundlesComeFirstAndGoInTheirPlace) {
    ConfigureBundles("Bundle=fx_first\nBundle=fx_third\nBundle=zo_base_bundle\nBundle=zo_domain_bundle\n");
    for (const char* const bundle : {"fx_first", "fx_third", "zo_base_bundle", "zo_domain_bundle"}) {
        ConfigureServices(bundle, "");
    }
    const std::string output = Run("load init fini");
    // Orders: zo_domain_bundle 50, zo_base_bundle 100, fx_first 10, fx_third 20.
    EXPECT_THAT(output, HasSubstr(InitBundle("zo_domain_bundle") + Loaded("zo_domain_bundle") +
                                  InitBundle("zo_base_bundle") + Loaded("zo_base_bundle") + InitBundle("fx_first") +
                                  Loaded("fx_first") + InitBundle("fx_third") + Loaded("fx_third") + "> init: 0\n"));
    EXPECT_THAT(output, HasSubstr(FiniBundle("zo_base_bundle") + FiniBundle("zo_domain_bundle") +
                                  FiniBundle("fx_third") + FiniBundle("fx_first") + "> fini: done\n"));
}

// ---- Libraries that cannot be used ---------------------------------------------------------------

TEST_F(BundlesTest, AMissingLibraryDoesNotKeepTheOthersFromRunning) {
    ConfigureBundles("Bundle=fx_first\nBundle=fx_missing\nBundle=fx_second\n");
    ConfigureServices("fx_first", "service=fx_first:M1\n");
    ConfigureServices("fx_second", "service=fx_second:M2\n");
    Tell("M1", "publish");
    Tell("M2", "seek=M1");
    const std::string missing =
        "Load library libfx_missing.so failed. Error info:\n  libfx_missing.so: cannot open shared object file: No "
        "such file or directory\n";

    const std::string output =
        Run("corba-gone load reverse bundle=fx_missing interface=fx_missing interface=unknown init state=fx_second "
            "load-one=fx_missing fini wait destroy destroy-log");

    EXPECT_THAT(output, HasSubstr(LoadedBundle("fx_first") + Loading("fx_missing") + missing + NotLoaded("fx_missing") +
                                  LoadedBundle("fx_second") +
                                  "> load: -1\n"
                                  "> reverse:  fx_second none fx_first\n"
                                  "> bundle=fx_missing: none\n"
                                  "> interface=fx_missing: none\n"
                                  "> interface=unknown: none\n"));
    EXPECT_THAT(output, HasSubstr("M2: found service M1 of fx_first\n"));
    EXPECT_THAT(output, HasSubstr("> init: 0\n> state=fx_second: 1\nError: Bundles \xEF\xBC\x88"
                                  "fx_missing\xEF\xBC\x89 already loaded previously!\n> load-one=fx_missing: none\n"));
    EXPECT_THAT(output, HasSubstr(EndService("M1") + "> fini: done\n" + BeginExit("fx_second", "M2")));
    EXPECT_THAT(output, testing::EndsWith("> destroy: done\n> destroy-log: done\n"));
    EXPECT_THAT(Records(),
                testing::IsSupersetOf({"bundlemgrimpl::1 " + missing, "bundlemgrimpl::1 " + NotLoaded("fx_missing")}));
}

TEST_F(BundlesTest, LibrariesWithoutTheirBundleStayOpenAndCountAsFailed) {
    ConfigureBundles("Bundle=fx_nobundle\nBundle=fx_misnamed\nBundle=fx_throwing\nBundle=fx_needy\n");
    ConfigureServices("fx_real_name", "");
    const std::string library = std::string(ZO_TEST_PLUGIN_DIR) + "/libfx_throwing.so";
    const std::string failures =
        Loading("fx_nobundle") + NoBundleIn("fx_nobundle") + NotLoaded("fx_nobundle") +  //
        Loading("fx_misnamed") + "fx_real_name: created\n" + NoBundleIn("fx_misnamed") + NotLoaded("fx_misnamed") +
        Loading("fx_throwing") + "Error: The bundle of " + library + " was not created: trouble in fx_throwing\n" +
        NoBundleIn("fx_throwing") + NotLoaded("fx_throwing") +  //
        Loading("fx_needy") +
        "Load library libfx_needy.so failed. Error info:\n  libfx_needed.so: cannot open shared object file: No such "
        "file or directory\n" +
        NotLoaded("fx_needy");

    EXPECT_EQ(failures +
                  "> load: -4\n> mapped=/libfx_nobundle.so: yes\n> mapped=/libfx_misnamed.so: yes\n"
                  "> mapped=/libfx_throwing.so: yes\n> mapped=/libfx_needy.so: no\n> bundle=fx_misnamed: none\n"
                  "> bundle=fx_real_name: fx_real_name\n> free=fx_real_name: yes\n" +
                  InitBundle("fx_real_name") + Loaded("fx_real_name") + "> init: 0\n> reverse:  none none none none\n" +
                  FiniBundle("fx_real_name") +
                  "> fini: done\nfx_real_name: destroyed\n> destroy: done\n> mapped=/libfx_nobundle.so: no\n"
                  "> mapped=/libfx_misnamed.so: no\n> mapped=/libfx_throwing.so: no\n",
              Run("load mapped=/libfx_nobundle.so mapped=/libfx_misnamed.so mapped=/libfx_throwing.so "
                  "mapped=/libfx_needy.so bundle=fx_misnamed bundle=fx_real_name free=fx_real_name init reverse fini "
                  "destroy mapped=/libfx_nobundle.so mapped=/libfx_misnamed.so mapped=/libfx_throwing.so"));
}

TEST_F(BundlesTest, ANameListedTwiceIsOpenedOnceAndWaitedForTwice) {
    ConfigureBundles("Bundle=fx_third\nBundle=fx_third\n");
    ConfigureServices("fx_third", "");
    EXPECT_EQ(LoadedBundle("fx_third") + Loading("fx_third") +
                  "Error: Bundles \xEF\xBC\x88"
                  "fx_third\xEF\xBC\x89 already loaded previously!\n"
                  "> load: 0\n> reverse:  fx_third fx_third\nfx_third: destroyed\n> destroy: done\n",
              Run("load reverse destroy"));
}

TEST_F(BundlesTest, ABundleCanBeLoadedByItself) {
    EXPECT_EQ("fx_third: created\n" + Opened("fx_third") +
                  "> load-one=fx_third: fx_third\n"
                  "Error: Bundles \xEF\xBC\x88"
                  "fx_third\xEF\xBC\x89 already loaded previously!\n> load-one=fx_third: fx_third\n> reverse: \n"
                  "fx_third: destroyed\n> destroy: done\n",
              Run("load-one=fx_third load-one=fx_third reverse destroy"));
}

// A library that is open already registers nothing when it is opened again.
TEST_F(BundlesTest, LoadingAgainForgetsTheBundlesWhoseLibrariesAreOpen) {
    ConfigureBundles("Bundle=fx_third\n");
    EXPECT_EQ(LoadedBundle("fx_third") + "> load: 0\n" + Loading("fx_third") + NoBundleIn("fx_third") +
                  NotLoaded("fx_third") + "> load: -1\n> bundle=fx_third: none\n> init: 0\n> fini: done\n" +
                  "fx_third: destroyed\n> destroy: done\n",
              Run("load load bundle=fx_third init fini destroy"));
}

TEST_F(BundlesTest, WithoutAConfigurationThereIsNothingToDo) {
    const std::string file = m_dir / "nbi/../etc/oss_cfg/nbi/conf/bundlemgr.cfg";
    EXPECT_EQ("File :" + file + " Open Failed \nFailed in Read BundleMgr Config File \n" +
                  "> load: 0\n> init: 0\n> fini: done\n> destroy: done\n",
              Run("load init fini destroy"));
}

// ---- Failures of a bundle ------------------------------------------------------------------------------

TEST_F(BundlesTest, AFailingInitStopsTheOthersAndTheHostShutsDown) {
    ConfigureBundles("Bundle=fx_first\nBundle=fx_second\nBundle=fx_third\n");
    for (const char* const bundle : {"fx_first", "fx_second", "fx_third"}) ConfigureServices(bundle, "");
    ConfigureServices("fx_first", "service=fx_first:M1\n");
    Tell("fx_second", "init=7");
    const std::string output = Run("load init state=fx_first state=fx_second state=fx_third fini destroy");
    EXPECT_THAT(output, HasSubstr(InitBundle("fx_second") + Loaded("fx_second") + InitBundleFailed("fx_second", "7") +
                                  "> init: 7\n> state=fx_first: 1\n> state=fx_second: 0\n> state=fx_third: 0\n" +
                                  FiniBundle("fx_second") + FiniBundle("fx_third") + FiniBundle("fx_first") +
                                  EndService("M1")));
    EXPECT_THAT(output, testing::EndsWith("> destroy: done\n"));
    EXPECT_THAT(Records(), testing::Contains("bundlemgrimpl::3 " + InitBundleFailed("fx_second", "7")));
}

// The exception's class goes with the bundle's library.
TEST_F(BundlesTest, ExceptionsOfABundleAreContained) {
    ConfigureBundles("Bundle=fx_third\nBundle=fx_first\n");
    ConfigureServices("fx_first", "");
    ConfigureServices("fx_third", "");
    Tell("fx_first", "init=throw fini=throw wait=throw");
    EXPECT_EQ("> corba-gone: done\n" + LoadedBundle("fx_third") + LoadedBundle("fx_first") + "> load: 0\n" +
                  InitBundle("fx_first") + "Error: Init of bundle fx_first threw: trouble in fx_first\n" +
                  InitBundleFailed("fx_first", "-1") + "> init: -1\n> free=fx_first: yes\n" + FiniBundle("fx_third") +
                  FiniBundle("fx_first") + "Error: Fini of bundle fx_first threw: trouble in fx_first\n" +
                  "> fini: done\n> free=fx_first: yes\n" +
                  "Error: WaitThreadExit of bundle fx_first threw: trouble in fx_first\n" +
                  "> wait: done\n> free=fx_first: yes\nfx_first: destroyed\nfx_third: destroyed\n> destroy: done\n",
              Run("corba-gone load init free=fx_first fini free=fx_first wait free=fx_first destroy"));
}

// ---- Libraries come and go -------------------------------------------------------------------------------

TEST_F(BundlesTest, LibrariesAreGoneAfterDestroyAndMayComeAgain) {
    ConfigureBundles("Bundle=fx_first\nBundle=zo_base_bundle\n");
    ConfigureServices("fx_first", "service=fx_first:M1\nservice=fx_first:P2\n");
    ConfigureServices("zo_base_bundle", "service=zo_base_bundle:BaseSvc\n");
    Tell("BaseSvc", "publish thread task null");
    Tell("M1", "null");
    const std::string life =
        "load init mapped=/libBaseSvc.so fini wait-one=fx_first destroy mapped=/libfx_first.so "
        "mapped=/libzo_base_bundle.so mapped=/libBaseSvc.so ";
    const std::string output = Run(life + "destroy-log " + life + "events " + life + "destroy-events destroy-log");
    std::size_t lives = 0;
    const std::string end =
        "> destroy: done\n> mapped=/libfx_first.so: no\n> mapped=/libzo_base_bundle.so: no\n"
        "> mapped=/libBaseSvc.so: no\n";
    for (std::size_t at = 0; (at = output.find(end, at)) != std::string::npos; ++at) ++lives;
    EXPECT_EQ(3U, lives);
    EXPECT_THAT(output, Not(HasSubstr("Error")));
    EXPECT_THAT(output, HasSubstr("BaseSvc: NULLServiceInterface!\n"));
}

TEST_F(BundlesTest, AServiceThatIsStillThereKeepsItsLibrary) {
    ConfigureBundles("Bundle=fx_first\n");
    ConfigureServices("fx_first", "service=fx_first:M1\nservice=fx_first:M2\n");
    EXPECT_THAT(Run("load init remove=M2@fx_first destroy mapped=/libfx_first.so"),
                testing::EndsWith("> destroy: done\n> mapped=/libfx_first.so: yes\n" + EndService("M1") +
                                  "fx_first: destroyed\n"));
}

TEST_F(BundlesTest, ABundleMayUseTheLibraryEarlyAndLate) {
    ConfigureBundles("Bundle=fx_early\n");
    const std::string used = ": hello, early bird, unset\n";
    EXPECT_EQ(Loading("fx_early") + "in a static constructor\nfx_early: in a static constructor" + used +
                  Opened("fx_early") + "> load: 0\n" + InitBundle("fx_early") +
                  "at the end of a thread\nfx_early: at the end of a thread" + used + "> init: 0\n" +
                  FiniBundle("fx_early") + "> fini: done\nin a static destructor\nfx_early: in a static destructor" +
                  used + "> destroy: done\n> destroy-events: done\n> destroy-log: done\n",
              Run("load init fini destroy destroy-events destroy-log"));
}

TEST_F(BundlesTest, TheLibraryMayBeUsedUntilTheVeryEnd) {
    ConfigureBundles("Bundle=fx_early\n");
    EXPECT_THAT(Run("events load init fini-events destroy-events destroy-log"),
                testing::EndsWith("> destroy-log: done\nin a static destructor\n"
                                  "fx_early: in a static destructor: hello, early bird, unset\n"));
}

// ---- Hosts that end in other ways ----------------------------------------------------------------------------

TEST_F(BundlesTest, AHostMayEndWithoutStoppingAnything) {
    ConfigureBundles("Bundle=fx_first\nBundle=zo_domain_bundle\n");
    ConfigureServices("fx_first", "service=fx_first:M1\nservice=fx_first:P1\nservice=fx_first:M2\n");
    ConfigureServices("zo_domain_bundle", "service=zo_domain_bundle:DomainSvc\n");
    Tell("M1", "publish thread fini=remove");
    Tell("P1", "fini=remove");
    Tell("DomainSvc", "publish");
    const std::string output = Run("load init");
    const std::string begun = "> init: 0\n";
    EXPECT_THAT(output, HasSubstr(begun));
    EXPECT_THAT(output, HasSubstr(EndService("M2") + "P1: fini\n" + Finalize("P1") + EndService("M1") +
                                  "fx_first: destroyed\n"));
    EXPECT_THAT(output, HasSubstr(EndService("DomainSvc") + "zo_domain_bundle: destroyed\n"));
}

TEST_F(BundlesTest, AHostMayStopTwice) {
    ConfigureBundles("Bundle=fx_first\n");
    ConfigureServices("fx_first", "service=fx_first:P1\nservice=fx_first:M1\n");
    const std::string output = Run("load init fini fini wait-one=fx_first wait-one=fx_first destroy destroy");
    EXPECT_THAT(output, HasSubstr("> init: 0\n" + FiniBundle("fx_first") + EndService("M1") + "P1: fini\n" +
                                  Finalize("P1") + "> fini: done\n" + FiniBundle("fx_first") + "> fini: done\n"));
    EXPECT_THAT(output, Not(HasSubstr("ends its threads")));
    EXPECT_THAT(output, testing::EndsWith("fx_first: destroyed\n> destroy: done\n> destroy: done\n"));
}

}  // namespace
}  // namespace test
