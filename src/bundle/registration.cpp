#include <ace/Service_Object.h>
#include <dlfcn.h>

#include <bundlemgr/bundle.h>

#include "src/corelog/corelog.h"
#include "src/corelog/currentexception.h"
#include "src/lifetime/liveservices.h"

namespace NS_BUNDLEMGR1 {

namespace {

CoreLog g_log("registration");

const char* LibraryOf(BundleObject* (*create)()) {
    Dl_info info{};
    const bool known = dladdr(reinterpret_cast<const void*>(create), &info) != 0 && info.dli_fname != nullptr;
    return known ? info.dli_fname : "an unknown library";
}

}  // namespace

BundleRegistration::BundleRegistration(BundleObject* (*create)()) noexcept : m_pBundle(nullptr) {
    // An exception must not unwind through the dynamic loader, which would stay locked.
    ReportException(
        [this, create] {
            m_pBundle = create();
            BundleMgr::Instance()->RegisterBundle(m_pBundle);
        },
        [create](const char* what) {
            g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Error: The bundle of %s was not created: %s\n", LibraryOf(create),
                        what);
        });
}

BundleRegistration::~BundleRegistration() {
    if (m_pBundle == nullptr) return;
    const auto report = [](const char* what) {
        g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Error: A bundle that was not stopped ended with: %s\n", what);
    };
    // Where a host ends without having stopped, services would outlive their bundle.
    if (m_pBundle->GetState() != BUNDLE_STATE_FINIED) {
        ReportException([this] { m_pBundle->UnLoadAllServiceObjects(); }, report);
    }
    ReportException([this] { delete m_pBundle; }, report);
}

ACE_Service_Object* MakeService(const char* serviceName, ACE_Service_Object* (*create)()) noexcept {
    ACE_Service_Object* service = nullptr;
    ReportException(
        [&service, create] {
            service = create();
            LiveServices::MarkMade(dynamic_cast<ServiceObjectBase*>(service));
        },
        [serviceName](const char* what) {
            g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Error: Service %s was not created: %s\n", serviceName, what);
        });
    return service;
}

void DestroyService(void* service) {
    auto* const object = static_cast<ACE_Service_Object*>(service);
    if (!LiveServices::LeaveToCallers(dynamic_cast<ServiceObjectBase*>(object))) delete object;
}

}  // namespace NS_BUNDLEMGR1
