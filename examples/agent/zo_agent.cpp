// A host: loads the configured bundles, runs them, and stops them in order.
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "bundlemgr/base.h"
#include "bundlemgr/bundlemgr.h"
#include "bundlemgr/event.h"
#include "bundlemgr/log.h"
#include "options.h"
#include "settingsreport.h"
#include "startreport.h"
#include "stopsignals.h"

namespace {

using NS_BUNDLEMGR1::BundleMgr;
using NS_BUNDLEMGR1::CorbaConfigItems;
using NS_BUNDLEMGR1::LightEventMgr;
using NS_BUNDLEMGR1::LogProxyDebugInfoBufMgr;

enum ExitStatus : int {
    EXIT_STOPPED = 0,
    EXIT_NOT_STARTED = 1,
    EXIT_WRONG_USAGE = 2,
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
std::string Start(StopSignals& signals) {
    // Before the bundles, which post events and read settings from their first moment.
    if (LightEventMgr::Instance()->Init() != 1) return "the event manager cannot be started";
    for (const std::string& trouble : SettingsTroubles()) Complain(trouble);
    CorbaConfigItems::Instance()->init();

    const std::string logHint = ", see the log in " + NS_BUNDLEMGR1::GetNBILogPath();
    if (BundleMgr::Instance()->LoadAllBundles() != 0) return "cannot load " + BundlesNotLoaded() + logHint;
    for (const std::string& trouble : UnreadableServices()) Complain(trouble);
    if (signals.Requested()) return "";
    const int result = BundleMgr::Instance()->InitAllBundles();
    if (result == 0) return "";
    return "cannot initialise " + BundleNotInitialised() + ", result " + std::to_string(result) + logHint;
}

// Ends whatever `Start` has begun, however far it got.
void Stop() {
    BundleMgr* const manager = BundleMgr::Instance();
    manager->FiniAllBundles();
    // Without a CORBA side there is none to wait for.
    NS_BUNDLEMGR1::g_isUnloadingCorba = manager->GetBundle("zo_corba_bundle") == nullptr;
    manager->WaitAllBundlesThreadExit();
    LightEventMgr::Instance()->Fini();
    LightEventMgr::Destroy();
    // From here on nobody runs but this thread; the libraries are closed now.
    BundleMgr::Destroy();
    LogProxyDebugInfoBufMgr::Destroy();
    CorbaConfigItems::Destroy();
}

int Run(const Options& options) {
    std::string reason = Unconfigured();
    if (!reason.empty()) {
        Complain(reason);
        return EXIT_NOT_STARTED;
    }
    StopSignals signals;
    reason = Start(signals);
    // Only now: the first records have made the directory if it can be made.
    const std::string logTrouble = LogTrouble();
    if (!logTrouble.empty()) Complain(logTrouble);
    if (!reason.empty()) {
        Complain(reason);
    } else if (!signals.Requested()) {
        std::printf("zo_agent: ready\n");
        std::fflush(stdout);
        signals.Wait(std::chrono::seconds(options.seconds));
    }
    Stop();
    return reason.empty() ? EXIT_STOPPED : EXIT_NOT_STARTED;
}

}  // namespace

int main(int argc, char* argv[]) {
    FillStandardStreams();
    Options options;
    std::string reason;
    if (!ParseOptions(argc, argv, options, reason)) {
        Complain(reason);
        std::fputs(UsageText(), stderr);
        return EXIT_WRONG_USAGE;
    }
    if (options.help || options.version) {
        std::fputs(options.help ? UsageText() : "zo_agent " ZO_AGENT_VERSION "\n", stdout);
        return EXIT_STOPPED;
    }
    if (!ApplyRoot(options, reason)) {
        Complain(reason);
        return EXIT_WRONG_USAGE;
    }
    if (!options.conf.empty()) NS_BUNDLEMGR1::SetCfgDirPath(options.conf);
    return Run(options);
}
