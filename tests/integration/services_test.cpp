// Services in their bundles: loading and its failures, unloading, threads, interfaces.
#include "hosttest.h"

namespace test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string Created(const std::string& service) {
    return InitService(service) + service + ": created\n";
}

std::string Initialised(const std::string& service) {
    return Created(service) + service + ": init with 0 arguments\n";
}

/// The bundle fx_first, loaded and with all its services but the first one.
class ServicesTest : public HostTest {
protected:
    ServicesTest() { ConfigureBundles("Bundle=fx_first\n"); }

    /// The output from "load" on.
    std::string RunLoaded(const std::string& commands) {
        const std::string output = Run("load " + commands);
        const std::string loaded = "> load: 0\n";
        const std::string::size_type at = output.find(loaded);
        EXPECT_NE(std::string::npos, at) << output;
        return output.substr(at + loaded.size());
    }

    std::string ErrorRecord() const {
        for (const std::string& record : Records()) {
            if (record.find(": trouble in ") != std::string::npos) return record;
        }
        return "none";
    }
};

// ---- A service that fails ---------------------------------------------------------------------------

struct Factory {
    const char* first;
    const char* failing;
    bool hasDestructor;
};

void PrintTo(const Factory& factory, std::ostream* out) {
    *out << factory.failing;
}

class FailingServiceTest : public ServicesTest, public testing::WithParamInterface<Factory> {
protected:
    FailingServiceTest() {
        ConfigureServices("fx_first",
                          "service=fx_first:" + first + "\nservice=fx_first:" + failing + "\nservice=fx_first:M3\n");
    }

    std::string Destroyed(const std::string& service) const {
        return GetParam().hasDestructor ? service + ": destroyed\n" : "";
    }

    const std::string first = GetParam().first;
    const std::string failing = GetParam().failing;
};

INSTANTIATE_TEST_SUITE_P(Factories, FailingServiceTest,
                         testing::Values(Factory{"M1", "M2", true}, Factory{"P1", "P2", false},
                                         Factory{"P1", "G1", false}),
                         [](const auto& factory) { return std::string(factory.param.failing); });

TEST_P(FailingServiceTest, TheSecondOfThreeFailsWithThree) {
    Tell(failing, "init=3");
    EXPECT_EQ("> events: 1\n" + InitBundle("fx_first") + StartService(first) + Initialised(failing) +
                  InitFailed("fx_first", failing, "3") + Destroyed(failing) + Loaded("fx_first", "3") +
                  InitBundleFailed("fx_first", "3") + "> init: 3\n> removals=1: arrived\n> services=fx_first:  " +
                  first + "\n> free=fx_first: yes\n" + FiniBundle("fx_first") + first + ": fini\n" + Finalize(first) +
                  Destroyed(first) + "> fini: done\n" + BeginExit("fx_first", first) + FinishExit("fx_first", first) +
                  "> wait-one=fx_first: done\n> destroy-events: done\nfx_first: destroyed\n> destroy: done\n",
              RunLoaded("events init removals=1 services=fx_first free=fx_first fini wait-one=fx_first "
                        "destroy-events destroy"));
    const std::vector<std::string> records = Records();
    EXPECT_THAT(records, Contains("bundledef:262:3 " + InitFailed("fx_first", failing, "3")));
    EXPECT_THAT(records, Not(Contains("bundledef:267:3 " + Ready(failing))));
    EXPECT_THAT(records, Not(Contains("bundledef:257:3 " + InitService("M3"))));
    EXPECT_THAT(records, Not(Contains("servicedef:55:3 " + Finalize(failing))));
}

// The configurator destroys it before it answers.
TEST_P(FailingServiceTest, TheSecondOfThreeFailsWithMinusOne) {
    Tell(failing, "init=-1");
    const std::string output =
        RunLoaded("events init removals=1 services=fx_first wait-one=fx_first greet=" + failing + " destroy-events");
    EXPECT_THAT(output, StartsWith("> events: 1\n" + InitBundle("fx_first") + StartService(first) +
                                   Initialised(failing) + Destroyed(failing) + InitFailed("fx_first", failing, "1") +
                                   Loaded("fx_first", "1") + InitBundleFailed("fx_first", "1") +
                                   "> init: 1\n> removals=1: arrived\n> services=fx_first:  " + first + "\n" +
                                   BeginExit("fx_first", first) + first + ": ends its threads\n" +
                                   FinishExit("fx_first", first) + "> wait-one=fx_first: done\n> greet=" + failing +
                                   ": nobody\n> destroy-events: done\n"));
}

TEST_P(FailingServiceTest, AnExceptionFromInitIsAFailure) {
    Tell(failing, "init=throw");
    Set("LSAN_OPTIONS", "suppressions=" ZO_TEST_PARSER_LEAKS);
    const std::string report = "Error: Initialisation of service " + failing + " threw: trouble in " + failing + "\n";
    EXPECT_THAT(RunLoaded("init free=fx_first services=fx_first fini destroy"),
                StartsWith(InitBundle("fx_first") + StartService(first) + Initialised(failing) + Destroyed(failing) +
                           report + InitFailed("fx_first", failing, "-1") + Loaded("fx_first", "-1") +
                           InitBundleFailed("fx_first", "-1") +
                           "> init: -1\n> free=fx_first: yes\n> services=fx_first:  " + first + "\n"));
    EXPECT_EQ("bundledef::1 " + report, ErrorRecord());
}

TEST_P(FailingServiceTest, AnExceptionFromTheConstructorIsAFailure) {
    Tell(failing, "ctor=throw");
    const bool macro = GetParam().hasDestructor;
    if (!macro) Set("LSAN_OPTIONS", "suppressions=" ZO_TEST_PARSER_LEAKS);
    const std::string error = macro ? "1" : "-1";
    const std::string report =
        macro ? "Error: Service " + failing + " was not created: trouble in " + failing + "\n"
              : "Error: Initialisation of service " + failing + " threw: trouble in " + failing + "\n";
    const std::string output =
        RunLoaded("events init removals=1 free=fx_first services=fx_first fini wait-one=fx_first destroy-events");
    EXPECT_THAT(output,
                StartsWith("> events: 1\n" + InitBundle("fx_first") + StartService(first) + Created(failing) + report +
                           InitFailed("fx_first", failing, error) + Loaded("fx_first", error) +
                           InitBundleFailed("fx_first", error) + "> init: " + error +
                           "\n> removals=1: arrived\n> free=fx_first: yes\n> services=fx_first:  " + first + "\n"));
    EXPECT_EQ((macro ? "registration::1 " : "bundledef::1 ") + report, ErrorRecord());
}

// Its author gave it another name than the operator.
TEST_F(ServicesTest, AFailedServiceIsNotCalledUnderTheNameItChose) {
    ConfigureServices("fx_first", "service=fx_first:Alias\n");
    for (const char* const result : {"-1", "5"}) {
        Tell("P4", std::string("init=") + result);
        const std::string error = result == std::string("5") ? "5" : "1";
        EXPECT_THAT(RunLoaded("init services=fx_first wait-one=fx_first greet=P4 fini"),
                    StartsWith(InitBundle("fx_first") + InitService("Alias") +
                               "P4: created\nP4: init with 0 arguments\n" + InitFailed("fx_first", "Alias", error) +
                               NotFound("Alias") + Loaded("fx_first", error) + InitBundleFailed("fx_first", error) +
                               "> init: " + error + "\n> services=fx_first:  P4\n" + BeginExit("fx_first", "P4") +
                               FinishExit("fx_first", "P4") + "> wait-one=fx_first: done\n> greet=P4: nobody\n"));
    }
}

TEST_F(ServicesTest, AMissingFactoryIsAFailure) {
    ConfigureServices("fx_first", "service=fx_first:Nobody\nservice=fx_first:M1\n");
    EXPECT_EQ(InitBundle("fx_first") + InitService("Nobody") + InitFailed("fx_first", "Nobody", "1") +
                  NotFound("Nobody") + Loaded("fx_first", "1") + InitBundleFailed("fx_first", "1") +
                  "> init: 1\nfx_first: destroyed\n> destroy: done\n> mapped=/libfx_first.so: no\n",
              RunLoaded("init destroy mapped=/libfx_first.so"));
}

TEST_F(ServicesTest, AMissingLibraryIsAFailure) {
    ConfigureServices("fx_first", "service=fx_missing:Svc\n");
    EXPECT_EQ(InitBundle("fx_first") + InitService("Svc") + InitFailed("fx_missing", "Svc", "1") + NotFound("Svc") +
                  Loaded("fx_first", "1") + InitBundleFailed("fx_first", "1") +
                  "> init: 1\nfx_first: destroyed\n> destroy: done\n",
              RunLoaded("init destroy"));
}

TEST_F(ServicesTest, ANameThatTheConfiguratorCannotReadCountsAsReady) {
    ConfigureServices("fx_first", "service=fx_first:M1:x\nservice=fx_first:M2\n");
    EXPECT_THAT(RunLoaded("init services=fx_first fini"),
                StartsWith(InitBundle("fx_first") + InitService("M1:x") + Ready("M1:x") + StartService("M2") +
                           Loaded("fx_first") + "> init: 0\n> services=fx_first:  M2\n" + FiniBundle("fx_first") +
                           EndService("M2") + "> fini: done\n"));
}

TEST_F(ServicesTest, LoadingStopsOnceTheManagerIsFinalising) {
    ConfigureServices("fx_first", "service=fx_first:M1\nservice=fx_first:M2\n");
    Tell("M1", "phase=2");
    EXPECT_THAT(RunLoaded("init fini"), StartsWith(InitBundle("fx_first") + StartService("M1") +
                                                   Loaded("fx_first", "-1") + InitBundleFailed("fx_first", "-1") +
                                                   "> init: -1\n" + FiniBundle("fx_first") + EndService("M1")));
}

TEST_F(ServicesTest, LoadingStopsOnceTheBundleIsFinalised) {
    ConfigureServices("fx_first", "service=fx_first:M1\nservice=fx_first:M2\n");
    Tell("M1", "state=2");
    const std::string text = "\n===== proc will exit and stop to init Service -[ M2 ] =====\n";
    EXPECT_THAT(RunLoaded("init fini"), StartsWith(InitBundle("fx_first") + StartService("M1") + text +
                                                   Loaded("fx_first", "1") + InitBundleFailed("fx_first", "1")));
    EXPECT_THAT(Records(), Contains("bundledef:251:3 " + text));
}

// ---- Services that nest -------------------------------------------------------------------------------

TEST_F(ServicesTest, AServiceMayLoadAnotherWhileItInitialises) {
    ConfigureServices("fx_first", "service=fx_first:M1\nservice=fx_first:M2\n");
    Tell("M1", "nest=fx_first:M3 open=libfx_nobundle.so");
    EXPECT_THAT(RunLoaded("init services=fx_first fini"),
                StartsWith(InitBundle("fx_first") + Initialised("M1") +
                           "M3: created\nM3: init with 0 arguments\nM1: M3 nested: 0\n"
                           "M1: libfx_nobundle.so opened\n" +
                           Ready("M1") + StartService("M2") + Loaded("fx_first") +
                           "> init: 0\n> services=fx_first:  M1 M2 M3\n" + FiniBundle("fx_first") + EndService("M2") +
                           EndService("M3") + EndService("M1") + "> fini: done\n"));
}

TEST_F(ServicesTest, AFailedServiceLeavesTheOneItNested) {
    ConfigureServices("fx_first", "service=fx_first:M1\n");
    Tell("M1", "nest=fx_first:P2 init=5");
    EXPECT_THAT(
        RunLoaded("init services=fx_first fini"),
        AllOf(HasSubstr(InitFailed("fx_first", "M1", "5") + "M1: destroyed\n"), HasSubstr("> services=fx_first:  P2\n"),
              HasSubstr(FiniBundle("fx_first") + "P2: fini\n" + Finalize("P2"))));
}

// ---- Loading on a thread of the bundle's own -----------------------------------------------------------

class LoadingElsewhereTest : public ServicesTest {
protected:
    LoadingElsewhereTest() {
        ConfigureBundles("Bundle=fx_first\nBundle=fx_second\n");
        ConfigureServices("fx_first", "service=fx_first:M1\nservice=fx_first:M2\n");
    }
};

// The configurator is busy with M1, which asks the manager for bundles, while the second
// bundle waits for it under the manager's lock.
TEST_F(LoadingElsewhereTest, AServiceMayAskTheManagerThatInitialisesAnotherBundle) {
    ConfigureServices("fx_first", "service=fx_first:M1\n");
    ConfigureServices("fx_second", "service=fx_second:P1\n");
    Tell("fx_first", "elsewhere=1");
    Tell("M1", "at=1 until=2 seek=nobody");
    Tell("fx_second", "at=2");
    const std::string output = RunLoaded("init services=fx_second fini wait destroy");
    EXPECT_THAT(output, HasSubstr("M1: found nobody\n"));
    EXPECT_THAT(output, HasSubstr(Ready("M1")));
    EXPECT_THAT(output, HasSubstr(Loaded("fx_second")));
    EXPECT_THAT(output, HasSubstr("> init: 0\n"));
    EXPECT_THAT(output, HasSubstr("> services=fx_second:  P1\n"));
}

// The same while an older bundle is finalised, which waits for the configurator as well.
TEST_F(LoadingElsewhereTest, AServiceMayAskTheManagerThatFinalises) {
    Tell("fx_first", "elsewhere=1");
    Tell("M1", "at=1 until=2 seek=nobody");
    Tell("fx_second", "fini-at=2");
    const std::string output = RunLoaded("init fini wait destroy");
    EXPECT_THAT(output, HasSubstr("M1: found nobody\n"));
    EXPECT_THAT(output, HasSubstr("fx_first: services loaded: -1\n"));
    EXPECT_THAT(output, HasSubstr("M1: fini\n"));
    EXPECT_THAT(output, HasSubstr("M1: destroyed\n"));
    EXPECT_THAT(output, Not(HasSubstr("M2: ")));
}

TEST_F(LoadingElsewhereTest, ABundleMayWaitInFiniForItsLoadingToStop) {
    Tell("fx_first", "elsewhere=1 join");
    Tell("M1", "at=1 in=2 until-fini");
    const std::string output = RunLoaded("init milestone=2 fini wait destroy");
    EXPECT_THAT(output, HasSubstr("fx_first: services loaded: -1\n"));
    EXPECT_THAT(output, HasSubstr(EndService("M1")));
    EXPECT_LT(output.find("fx_first: services loaded: -1\n"), output.find(EndService("M1")));
    EXPECT_THAT(output, Not(HasSubstr("M2: ")));
}

// ---- Two bundles with a service of the same name ----------------------------------------------------------

TEST_F(ServicesTest, TheLaterOfTwoNamesakesTakesThePlaceOfTheFirst) {
    ConfigureBundles("Bundle=fx_first\nBundle=fx_second\n");
    ConfigureServices("fx_first", "service=fx_first:P1\nservice=fx_first:M1\n");
    ConfigureServices("fx_second", "service=fx_second:P1\nservice=fx_second:M1\n");
    Tell("P1", "publish fini=silent");
    Tell("M1", "publish");
    const std::string output = RunLoaded(
        "init services=fx_first services=fx_second greet=P1@fx_first greet=P1@fx_second wait-one=fx_first fini "
        "wait-one=fx_second");
    EXPECT_THAT(
        output,
        HasSubstr(InitBundle("fx_second") + InitService("P1") + "P1: fini\n" +  // that of fx_first
                  "P1: created\nP1: init with 0 arguments\n" + Ready("P1") + InitService("M1") + EndService("M1") +
                  "M1: created\nM1: init with 0 arguments\n" + Ready("M1") + Loaded("fx_second") +
                  "> init: 0\n> services=fx_first:  M1 P1\n> services=fx_second:  M1 P1\n"
                  "> greet=P1@fx_first: nobody\n> greet=P1@fx_second: service P1 of fx_second\n" +
                  BeginExit("fx_first", "M1") + FinishExit("fx_first", "M1") + BeginExit("fx_first", "P1") +
                  FinishExit("fx_first", "P1") + "> wait-one=fx_first: done\n" + FiniBundle("fx_second") +
                  EndService("M1") + "P1: fini\n" + FiniBundle("fx_first") + "> fini: done\n"));
    EXPECT_THAT(output, Not(HasSubstr("ends its threads")));
}

TEST_F(ServicesTest, ANamesakeThatThrowsIsReplacedAllTheSame) {
    ConfigureBundles("Bundle=fx_first\nBundle=fx_second\n");
    ConfigureServices("fx_first", "service=fx_first:M1\n");
    ConfigureServices("fx_second", "service=fx_second:M1\n");
    Tell("M1", "fini=throw");
    EXPECT_THAT(RunLoaded("init fini"), HasSubstr(InitService("M1") +
                                                  "M1: fini\nError: fini of service M1 threw: trouble in M1\n"
                                                  "M1: destroyed\nM1: created\nM1: init with 0 arguments\n" +
                                                  Ready("M1") + Loaded("fx_second") + "> init: 0\n"));
}

// ---- Unloading and removing ----------------------------------------------------------------------------------

TEST_F(ServicesTest, TheStopSequenceCallsNobodyTwice) {
    ConfigureServices("fx_first",
                      "service=fx_first:M1\nservice=fx_first:P1\nservice=fx_first:G1\nservice=fx_first:M2\n"
                      "service=fx_first:P2\nservice=fx_first:P3\n");
    Tell("M2", "fini=remove");
    Tell("P2", "fini=remove");
    Tell("P3", "fini=silent");
    const std::string output =
        RunLoaded("events init fini services=fx_first wait-one=fx_first removals=2 fini-events destroy-events destroy");
    EXPECT_THAT(output,
                HasSubstr(FiniBundle("fx_first") + "P3: fini\n" +  //
                          "P2: fini\n" + Finalize("P2") +          //
                          EndService("M2") +                       //
                          "G1: fini\n" + Finalize("G1") + "P1: fini\n" + Finalize("P1") + EndService("M1") +
                          "> fini: done\n> services=fx_first:  G1 M1 P1 P3\n" + BeginExit("fx_first", "P3") +
                          FinishExit("fx_first", "P3") + BeginExit("fx_first", "G1") + FinishExit("fx_first", "G1") +
                          BeginExit("fx_first", "P1") + FinishExit("fx_first", "P1") + BeginExit("fx_first", "M1") +
                          FinishExit("fx_first", "M1") + "> wait-one=fx_first: done\n> removals=2: arrived\n"));
    EXPECT_THAT(output, EndsWith("fx_first: destroyed\n> destroy: done\n"));
}

TEST_F(ServicesTest, ThreadsEndBeforeTheirServicesWhereTheBundleKeepsThem) {
    ConfigureServices("fx_first", "service=fx_first:M1\nservice=fx_first:P1\nservice=fx_first:M2\n");
    Tell("fx_first", "keep");
    Tell("M1", "thread");
    Tell("P1", "task");
    Tell("M2", "thread task exit=throw");
    EXPECT_THAT(RunLoaded("init fini wait-one=fx_first free=fx_first unload-services=fx_first destroy"),
                EndsWith(FiniBundle("fx_first") + "> fini: done\n" + BeginExit("fx_first", "M2") +
                         "M2: ends its threads\nError: ExitThreads of service M2 threw: trouble in M2\n" +
                         FinishExit("fx_first", "M2") + BeginExit("fx_first", "P1") + "P1: ends its threads\n" +
                         FinishExit("fx_first", "P1") + BeginExit("fx_first", "M1") + "M1: ends its threads\n" +
                         FinishExit("fx_first", "M1") + "> wait-one=fx_first: done\n> free=fx_first: yes\n" +
                         EndService("M2") + "P1: fini\n" + Finalize("P1") + EndService("M1") +
                         "> unload-services=fx_first: done\nfx_first: destroyed\n> destroy: done\n"));
    EXPECT_EQ("bundledef::1 Error: ExitThreads of service M2 threw: trouble in M2\n", ErrorRecord());
}

// The exception's class goes with the service's library.
TEST_F(ServicesTest, AnExceptionFromFiniIsContained) {
    ConfigureBundles("Bundle=zo_base_bundle\nBundle=fx_first\n");
    ConfigureServices("zo_base_bundle", "service=zo_base_bundle:BaseSvc\n");
    ConfigureServices("fx_first", "service=fx_first:M1\nservice=fx_first:P1\nservice=fx_first:M2\n");
    for (const char* const service : {"BaseSvc", "M2", "P1"}) Tell(service, "fini=throw");
    const auto threw = [](const std::string& service) {
        return service + ": fini\nError: fini of service " + service + " threw: trouble in " + service + "\n";
    };
    EXPECT_THAT(RunLoaded("init fini free=fx_first wait-one=fx_first destroy mapped=/libBaseSvc.so "
                          "mapped=/libfx_first.so"),
                EndsWith(FiniBundle("zo_base_bundle") + threw("BaseSvc") + "BaseSvc: destroyed\n" +
                         FiniBundle("fx_first") + threw("M2") + "M2: destroyed\n" + threw("P1") + EndService("M1") +
                         "> fini: done\n> free=fx_first: yes\n" + BeginExit("fx_first", "M2") +
                         FinishExit("fx_first", "M2") + BeginExit("fx_first", "P1") + FinishExit("fx_first", "P1") +
                         BeginExit("fx_first", "M1") + FinishExit("fx_first", "M1") +
                         "> wait-one=fx_first: done\nfx_first: destroyed\nzo_base_bundle: destroyed\n"
                         "> destroy: done\n> mapped=/libBaseSvc.so: no\n> mapped=/libfx_first.so: no\n"));
}

TEST_F(ServicesTest, ARunningServiceCanBeRemovedAndLoadedAgain) {
    ConfigureServices("fx_first", "service=fx_first:M1\n");
    Tell("M1", "publish task");
    EXPECT_THAT(RunLoaded("events load-services=fx_first remove=M1@fx_first removals=1 services=fx_first greet=M1 "
                          "remove=M1@fx_first load-services=fx_first services=fx_first greet=M1 fini destroy-events"),
                HasSubstr(StartService("M1") + "> load-services=fx_first: 0\n" + EndService("M1") +
                          "> remove=M1@fx_first: done\n> removals=1: arrived\n> services=fx_first: \n"
                          "> greet=M1: nobody\n" +
                          NotFound("M1") + "> remove=M1@fx_first: done\n" + StartService("M1") +
                          "> load-services=fx_first: 0\n> services=fx_first:  M1\n"
                          "> greet=M1: service M1 of fx_first\n" +
                          FiniBundle("fx_first") + EndService("M1") + "> fini: done\n"));
    EXPECT_THAT(Records(), Contains("bundledef:178:3 " + NotFound("M1")));
}

TEST_F(ServicesTest, AServiceThatThrowsWhenItIsRemovedIsGone) {
    ConfigureServices("fx_first", "service=fx_first:M1\nservice=fx_first:P1\n");
    Tell("M1", "fini=throw");
    Tell("P1", "fini=throw");
    EXPECT_THAT(RunLoaded("events init remove=P1@fx_first remove=M1@fx_first removals=2 services=fx_first "
                          "free=fx_first fini destroy-events"),
                HasSubstr("P1: fini\nError: fini of service P1 threw: trouble in P1\n> remove=P1@fx_first: done\n"
                          "M1: fini\nError: fini of service M1 threw: trouble in M1\nM1: destroyed\n"
                          "> remove=M1@fx_first: done\n> removals=2: arrived\n> services=fx_first: \n"
                          "> free=fx_first: yes\n"));
}

// ---- Interfaces across bundles -------------------------------------------------------------------------------------

TEST_F(ServicesTest, BundlesFindEachOthersInterfaces) {
    ConfigureBundles("Bundle=zo_base_bundle\nBundle=zo_domain_bundle\nBundle=fx_first\n");
    ConfigureServices("zo_base_bundle", "service=zo_base_bundle:BaseSvc\n");
    ConfigureServices("zo_domain_bundle", "service=zo_domain_bundle:DomainSvc\n");
    ConfigureServices("fx_first", "service=fx_first:M1\nservice=fx_first:M2\n");
    Tell("zo_base_bundle", "publish");
    Tell("BaseSvc", "publish seek=DomainSvc@zo_domain_bundle");  // which is initialised first, by its order
    Tell("DomainSvc", "publish seek=BaseSvc");
    Tell("M1", "publish seek=BaseSvc@zo_base_bundle");
    Tell("M2", "seek=M1");
    const std::string output = RunLoaded(
        "init interface=zo_base_bundle interface=fx_first greet=BaseSvc greet=DomainSvc greet=M1 greet=M2 "
        "greet=M1@zo_base_bundle fini destroy destroy-log");
    for (const char* const found :
         {"DomainSvc: found nobody\n", "BaseSvc: found service DomainSvc of zo_domain_bundle\n",
          "M1: found service BaseSvc of zo_base_bundle\n", "M2: found service M1 of fx_first\n",
          "> interface=zo_base_bundle: bundle zo_base_bundle\n> interface=fx_first: none\n"
          "> greet=BaseSvc: service BaseSvc of zo_base_bundle\n"
          "> greet=DomainSvc: service DomainSvc of zo_domain_bundle\n> greet=M1: service M1 of fx_first\n"
          "> greet=M2: nobody\n> greet=M1@zo_base_bundle: service M1 of fx_first\n"}) {
        EXPECT_THAT(output, HasSubstr(found));
    }
}

TEST_F(ServicesTest, TheInterfaceOfTheLastConfiguredBundleIsFound) {
    ConfigureBundles("Bundle=fx_second\nBundle=fx_first\n");
    ConfigureServices("fx_first", "service=fx_first:M1\n");
    // Known to both bundles: the configurator knows it under another name.
    ConfigureServices("fx_second", "service=fx_second:M2\n");
    Tell("M1", "publish");
    Tell("M2", "publish seek=M1");
    const std::string output = RunLoaded("init reverse fini destroy");
    EXPECT_THAT(output, HasSubstr("M2: found service M1 of fx_first\n"));
    EXPECT_THAT(output, HasSubstr("> reverse:  fx_first fx_second\n"));
}

}  // namespace
}  // namespace test
