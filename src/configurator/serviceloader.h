// One service, from its directive to ready or gone.
#pragma once

#include <string>
#include <vector>

#include "src/configurator/servicedirective.h"
#include "src/configurator/servicerepository.h"

namespace NS_BUNDLEMGR1 {

class BundleObject;

/// The loading of a bundle's services on the calling thread.
///
/// One service at a time is brought up in the whole process: whoever's turn it is has the
/// configurator. What ends the loading is looked at in that turn, since who stops the services
/// waits for the turn, too, and finds either this service or nothing.
class ServiceLoader {
public:
    explicit ServiceLoader(BundleObject& bundle);
    ~ServiceLoader();
    ServiceLoader(const ServiceLoader&) = delete;
    ServiceLoader& operator=(const ServiceLoader&) = delete;

    /// Has the configurator create and initialise a service; removes it from its bundle again
    /// when that fails. Active services of that name, another bundle's perhaps, are ended first.
    /// @return 0 when the service is ready; its result when it failed; -1 when the manager, 1
    ///         when the bundle is finalised: then nothing was started
    int Load(const ServiceDirective& service);

    /// @return whether any thread is loading services
    static bool Any();

private:
    int Conclude(const ServiceDirective& service, int result);

    BundleObject& m_bundle;
};

/// @return whether all bundles are being finalised, so that no service is to be started
bool IsManagerFinalising();

/// Finalises and destroys services of that name; an exception from one does not keep the
/// others from being ended.
void FinalizeServices(const std::string& name, const std::vector<ServiceEntry>& entries);

/// The same for one.
void FinalizeService(const std::string& name, ACE_Service_Type& entry);

}  // namespace NS_BUNDLEMGR1
