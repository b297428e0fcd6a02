#include "src/configurator/serviceloader.h"

#include <atomic>
#include <optional>

#include <ace/Service_Config.h>
#include <bundlemgr/bundle.h>

#include "src/configurator/servicelibraries.h"
#include "src/corelog/corelog.h"
#include "src/corelog/usercode.h"
#include "src/lifetime/livebundles.h"
#include "src/lifetime/servicebirth.h"
#include "src/lifetime/serviceend.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr int kStoppedByManager = -1;
constexpr int kStoppedByBundle = 1;
constexpr int kInitThrew = -1;

// Operators' log filters go by the source and the lines of these records.
constexpr char kRecordSource[] = "bundledef";
enum RecordLine : unsigned {
    kLineBundleFinalised = 251,
    kLineInitService = 257,
    kLineInitFailed = 262,
    kLineServiceReady = 267,
};

CoreLog g_log(kRecordSource);
std::atomic<int> g_loaders{0};

// All of them go out at this level, those of failures included.
template <class... Args>
void Log(RecordLine line, const char* format, Args... args) {
    g_log.Print(line, LOG_LEVEL_INFO, format, args...);
}

// What ends the loading before that service: nothing, or a result.
std::optional<int> StopOf(const BundleObject& bundle, const std::string& service) {
    if (IsManagerFinalising()) return kStoppedByManager;
    if (bundle.GetState() != BUNDLE_STATE_FINIED) return std::nullopt;
    Log(kLineBundleFinalised, "\n===== proc will exit and stop to init Service -[ %s ] =====\n", service.c_str());
    return kStoppedByBundle;
}

// The failed service may be gone without its destructor, whatever name it registered
// under; those that it brought up in its turn are not.
void ForgetFailed(const std::string& service, const ServiceBirth& birth, const ServiceRepository& turn) {
    for (const LiveServices::Service& child : birth.Children()) {
        if (!turn.HoldsUnderAnotherName(child.object, service)) LiveServices::GiveUp(child.object, child.id);
    }
}

// Any result of a service's init but 0 is a failure, where the configurator itself knows only -1.
int ProcessDirective(const ServiceDirective& service, const std::string& bundleName, ServiceRepository& turn) {
    // The manager is not asked: one that is finalising answers when it has finished, and
    // may be waiting for this thread.
    const std::size_t places = turn.CountPlaces();
    const ServiceBirth birth(bundleName, LiveBundles::Registered(bundleName));
    ServiceLibraries::Note(service.library);
    int result = kInitThrew;
    Contain(g_log, __LINE__, "Initialisation", UserCode{"service", service.service.c_str()}, [&result, &service] {
        result = ACE_Service_Config::current()->process_directive(service.directive.c_str());
    });
    if (result == 0) result = turn.InitResult(service.service);
    if (result != 0) ForgetFailed(service.service, birth, turn);
    birth.Publish();
    turn.CloseGaps(places);
    return result;
}

}  // namespace

bool IsManagerFinalising() {
    BundleMgr* const manager = BundleMgr::Instance();
    return manager != nullptr && manager->GetMgrPhase() == MGR_PHASE_FINI;
}

ServiceLoader::ServiceLoader(BundleObject& bundle) : m_bundle(bundle) {
    ++g_loaders;
}

ServiceLoader::~ServiceLoader() {
    --g_loaders;
}

bool ServiceLoader::Any() {
    return g_loaders > 0;
}

int ServiceLoader::Load(const ServiceDirective& service) {
    const std::string& name = service.service;
    for (bool isAnnounced = false;; isAnnounced = true) {
        std::vector<ServiceEntry> namesakes;
        int result = 0;
        std::optional<int> stop = StopOf(m_bundle, name);
        if (stop) return *stop;
        {
            ServiceRepository turn;
            stop = StopOf(m_bundle, name);
            if (stop) return *stop;
            if (!isAnnounced) Log(kLineInitService, "\n===== Init Service -[ %s ] =====\n", name.c_str());
            namesakes = turn.TakeActive(name);
            if (namesakes.empty()) result = ProcessDirective(service, m_bundle.GetName(), turn);
        }
        if (namesakes.empty()) return Conclude(service, result);
        // The configurator would make room for the service by finalising one of the same name,
        // another bundle's perhaps, in a destructor, where an exception would end the process.
        FinalizeServices(name, namesakes);
    }
}

int ServiceLoader::Conclude(const ServiceDirective& service, int result) {
    const char* const name = service.service.c_str();
    if (result == 0) {
        Log(kLineServiceReady, "\n===== Service Ready -[ %s ] =====\n", name);
    } else {
        Log(kLineInitFailed, "\n===== Init Failed -[ %s ][ params:%s ][ err: %d ] =====\n", name,
            service.directive.c_str(), result);
        m_bundle.RemoveServiceObject(name);
    }
    return result;
}

void FinalizeService(const std::string& name, ACE_Service_Type& entry) {
    const ServiceEnd end(ServiceRepository::ObjectOf(entry));
    ServiceRepository::Finalize(entry, [&](const char* what) {
        ReportThrown(g_log, __LINE__, "fini", UserCode{"service", name.c_str()}, what);
    });
}

void FinalizeServices(const std::string& name, const std::vector<ServiceEntry>& entries) {
    for (const ServiceEntry& entry : entries) FinalizeService(name, *entry);
}

}  // namespace NS_BUNDLEMGR1
