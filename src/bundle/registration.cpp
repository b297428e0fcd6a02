#include <ace/Service_Object.h>
#include <dlfcn.h>

#include "bundle/currentexception.h"
#include "bundle/liveservices.h"
#include "bundlemgr/bundle.h"
#include "log/logproxy.h"

namespace NS_BUNDLEMGR1 {

namespace {

CoreLog g_log("registration");

std::string LibraryOf(BundleObject* (*create)()) {
    Dl_info info{};
    const bool known = dladdr(reinterpret_cast<const void*>(create), &info) != 0 && info.dli_fname != nullptr;
    return known ? info.dli_fname : "an unknown library";
}

}  // namespace

BundleRegistration::BundleRegistration(BundleObject* (*create)()) noexcept : m_pBundle(nullptr) {
    // An exception must not unwind through the dynamic loader, which would stay locked.
    try {
        m_pBundle = create();
        BundleMgr::Instance()->RegisterBundle(m_pBundle);
    } catch (...) {
        g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Error: The bundle of %s was not created: %s\n",
                    LibraryOf(create).c_str(), CurrentException().c_str());
    }
}

BundleRegistration::~BundleRegistration() {
    if (m_pBundle == nullptr) return;
    const auto report = [](const std::string& what) {
        g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Error: A bundle that was not stopped ended with: %s\n", what.c_str());
    };
    // Where a host ends without having stopped, services would outlive their bundle.
    if (m_pBundle->GetState() != BUNDLE_STATE_FINIED) {
        ReportException([this] { m_pBundle->UnLoadAllServiceObjects(); }, report);
    }
    ReportException([this] { delete m_pBundle; }, report);
}

ACE_Service_Object* MakeService(const char* serviceName, ACE_Service_Object* (*create)()) noexcept {
    try {
        ACE_Service_Object* const service = create();
        LiveServices::MarkMade(dynamic_cast<ServiceObjectBase*>(service));
        return service;
    } catch (...) {
        g_log.Print(__LINE__, LOG_LEVEL_ERROR, "Error: Service %s was not created: %s\n", serviceName,
                    CurrentException().c_str());
        return nullptr;
    }
}

void DestroyService(void* service) {
    auto* const object = static_cast<ACE_Service_Object*>(service);
    // The configurator destroys what failed to initialise, and does not know who is
    // calling it meanwhile.
    LiveServices::Retire(dynamic_cast<ServiceObjectBase*>(object));
    delete object;
}

}  // namespace NS_BUNDLEMGR1
