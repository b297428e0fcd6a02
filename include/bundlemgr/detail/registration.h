// What `ZO_BUNDLE` and `ZO_SERVICE_FACTORY` of <bundlemgr/bundle.h> are made of. Nobody names
// it.
#pragma once

#include <ace/Service_Object.h>

#include <bundlemgr/export.h>

namespace NS_BUNDLEMGR1 {

class BundleObject;

/// @cond INTERNAL
/// Creates a bundle and registers it; deletes it when its library is unloaded.
class ZO_EXPORT BundleRegistration {
public:
    explicit BundleRegistration(BundleObject* (*create)()) noexcept;
    ~BundleRegistration();
    BundleRegistration(const BundleRegistration&) = delete;
    BundleRegistration& operator=(const BundleRegistration&) = delete;

private:
    BundleObject* m_pBundle;
};

/// Calls `create`; an exception from it is reported with the service's name.
ZO_EXPORT ACE_Service_Object* MakeService(const char* serviceName, ACE_Service_Object* (*create)()) noexcept;

/// Destroys a service that `MakeService` made.
ZO_EXPORT void DestroyService(void* service);
/// @endcond

}  // namespace NS_BUNDLEMGR1
