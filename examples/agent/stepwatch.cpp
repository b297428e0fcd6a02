#include "stepwatch.h"

#include <chrono>
#include <exception>
#include <map>
#include <system_error>

#include <bundlemgr/bundle.h>
#include <bundlemgr/bundlemgr.h>

#include "startreport.h"

using NS_BUNDLEMGR1::BundleObject;
using NS_BUNDLEMGR1::ServiceObjectBase;

namespace {

constexpr std::chrono::milliseconds kInterval(100);

// The service that is being initialised or was the last to be, or "".
std::string LatestService(BundleObject& bundle, const std::vector<std::string>& services) {
    if (services.empty()) return "";  // the look waits for whoever holds the bundle
    std::map<std::string, ServiceObjectBase*> made;
    bundle.GetAllServiceObjects(made);
    std::string latest;
    for (const std::string& service : services) {
        if (made.count(service) != 0) latest = service;
    }
    return latest;
}

}  // namespace

StepWatch::StepWatch(What what, Progress& progress) : m_what(what), m_progress(progress) {
    const bool initialised = what == What::INITIALISATION;
    for (BundleObject* const bundle : initialised ? BundlesInInitOrder() : BundlesInFiniOrder()) {
        const std::string name = bundle->GetName();
        m_steps.push_back({bundle, name, initialised ? ConfiguredServices(name) : std::vector<std::string>()});
    }
    try {
        m_thread = std::thread([this] { Watch(); });
    } catch (const std::system_error&) {
        // Without a thread nobody knows more than before.
    }
}

StepWatch::~StepWatch() {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_ending = true;
    }
    m_end.notify_all();
    if (m_thread.joinable()) m_thread.join();
}

void StepWatch::Watch() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_ending) {
        lock.unlock();
        try {
            Look();
        } catch (const std::exception&) {
            // No memory: the next look may have some.
        }
        lock.lock();
        m_end.wait_for(lock, kInterval, [this] { return m_ending; });
    }
}

void StepWatch::Look() {
    for (const Step& step : m_steps) {
        if (IsDone(step)) continue;
        Begin(step.name);
        const std::string service = LatestService(*step.bundle, step.services);
        if (!service.empty()) Begin(step.name + " (service " + service + ")");
        return;
    }
}

void StepWatch::Begin(const std::string& name) {
    if (name == m_entered || m_entered.rfind(name + " (", 0) == 0) return;  // is known already, or better
    m_entered = name;
    m_progress.Begin(name + (m_what == What::END ? " to be ended" : " to be initialised"));
}

bool StepWatch::IsDone(const Step& step) const {
    const int state = step.bundle->GetState();
    return state == NS_BUNDLEMGR1::BUNDLE_STATE_FINIED ||
           (m_what == What::INITIALISATION && state != NS_BUNDLEMGR1::BUNDLE_STATE_LOADED);
}
