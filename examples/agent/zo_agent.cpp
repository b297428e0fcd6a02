// A host: loads the configured bundles, runs them, and stops them in order.
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include <bundlemgr/base.h>
#include <bundlemgr/bundlemgr.h>
#include <bundlemgr/event.h>
#include <bundlemgr/log.h>

#include "commandline.h"
#include "logkeeper.h"
#include "options.h"
#include "progress.h"
#include "settingsreport.h"
#include "startreport.h"
#include "stepwatch.h"
#include "stopsignals.h"

namespace {

using NS_BUNDLEMGR1::BundleMgr;
using NS_BUNDLEMGR1::CorbaConfigItems;
using NS_BUNDLEMGR1::LightEventMgr;
using NS_BUNDLEMGR1::LogProxyDebugInfoBufMgr;

enum ExitStatus : int {
    EXIT_STOPPED = 0,
    EXIT_NOT_STARTED = 1,
    EXIT_BROKEN_OFF = 3,
};

// A descriptor that is free goes to the next file or connection. Were it one of the
// first three, what is printed would end up there.
void FillStandardStreams() {
    int handle = -1;
    do {
        handle = open("/dev/null", O_RDWR);
    } while (handle != -1 && handle <= STDERR_FILENO);
    if (handle != -1) close(handle);
}

void Complain(const std::string& reason) {
    std::fprintf(stderr, "zo_agent: %s\n", reason.c_str());
}

// Loads and initialises the bundles. "" when they are ready or a stop was requested
// meanwhile, else the reason why they are not.
std::string Start(StopSignals& signals, Progress& progress) {
    // Before the bundles, which post events and read settings from their first moment.
    if (LightEventMgr::Instance()->Init() != 1) return "the event manager cannot be started";
    for (const std::string& trouble : SettingsTroubles()) Complain(trouble);
    CorbaConfigItems::Instance()->init();

    progress.Begin("the bundles to be loaded");
    const std::string logHint = ", see the log in " + NS_BUNDLEMGR1::GetNBILogPath();
    if (BundleMgr::Instance()->LoadAllBundles() != 0) return "cannot load " + BundlesNotLoaded() + logHint;
    for (const std::string& trouble : UnreadableServices()) Complain(trouble);
    if (signals.Requested()) return "";

    progress.Begin("the bundles to be initialised");
    const StepWatch steps(StepWatch::What::INITIALISATION, progress);
    const int result = BundleMgr::Instance()->InitAllBundles();
    if (result == 0) return "";
    return "cannot initialise " + BundleNotInitialised() + ", result " + std::to_string(result) + logHint;
}

// Ends whatever `Start` has begun, however far it got.
void Stop(Progress& progress, LogKeeper& log) {
    BundleMgr* const manager = BundleMgr::Instance();
    progress.Begin("the bundles to be ended");
    {
        const StepWatch steps(StepWatch::What::END, progress);
        manager->FiniAllBundles();
    }
    progress.Begin("the threads of the bundles to end");
    // Without a CORBA side there is none to wait for.
    NS_BUNDLEMGR1::g_isUnloadingCorba = manager->GetBundle("zo_corba_bundle") == nullptr;
    manager->WaitAllBundlesThreadExit();
    progress.Begin("the event manager to end");
    LightEventMgr::Instance()->Fini();
    LightEventMgr::Destroy();
    // From here on nobody runs but this thread; the libraries are closed now.
    progress.Begin("the libraries of the bundles to be closed");
    BundleMgr::Destroy();
    progress.Begin("the log to be closed");
    log.End();
    LogProxyDebugInfoBufMgr::Destroy();
    CorbaConfigItems::Destroy();
}

// Null, and a complaint, when there is no thread to be had.
std::unique_ptr<StopSignals> WatchSignals(const Progress& progress, LogKeeper& log) {
    try {
        return std::make_unique<StopSignals>(progress, log, EXIT_BROKEN_OFF);
    } catch (const std::system_error& error) {
        Complain(std::string("cannot watch for signals: ") + error.what());
        return nullptr;
    }
}

int Run(const Options& options) {
    const std::string trouble = Unconfigured();
    if (!trouble.empty()) {
        Complain(trouble);
        return EXIT_NOT_STARTED;
    }
    Progress progress;
    LogKeeper log;
    progress.Begin("the host to be set up");
    const std::unique_ptr<StopSignals> signals = WatchSignals(progress, log);
    if (signals == nullptr) return EXIT_NOT_STARTED;
    const std::string reason = Start(*signals, progress);
    // Only now: the first records have made the directory if it can be made.
    const std::string logTrouble = LogTrouble();
    if (!logTrouble.empty()) Complain(logTrouble);
    log.Begin(!logTrouble.empty());
    if (!reason.empty()) {
        Complain(reason);
    } else if (!signals->Requested()) {
        std::printf("zo_agent: ready\n");
        signals->Wait(std::chrono::seconds(options.seconds));
    }
    signals->BeginStop();
    Stop(progress, log);
    return reason.empty() ? EXIT_STOPPED : EXIT_NOT_STARTED;
}

}  // namespace

int main(int argc, char* argv[]) {
    FillStandardStreams();
    // A file or a pipe, too, has every line that was printed before a crash.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    Options options;
    if (const std::optional<int> status = ParseOptions(argc, argv, options)) return *status;
    std::string reason;
    if (!ApplyRoot(options, reason)) {
        Complain(reason);
        return commandline::kWrongUsage;
    }
    if (!options.conf.empty()) NS_BUNDLEMGR1::SetCfgDirPath(options.conf);
    return Run(options);
}
