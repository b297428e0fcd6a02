// What the tests of a bundle and its services have in common.
#pragma once

#include <map>
#include <string>

#include "bundletest.h"
#include "support/elsewhere.h"

namespace test {

using Services = std::map<std::string, NS_BUNDLEMGR1::ServiceObjectBase*>;

/// The records around a service that ends its threads, as `Reported` gives them.
/// @{
inline std::string Begin(const std::string& service) {
    return "79 3 \n===== Begin to Exit Threads of -[ bundle -- " + service + " ] =====\n";
}
inline std::string Finish(const std::string& service) {
    return "90 3 \n===== Finish to Exit Threads of -[ bundle -- " + service + " ] =====\n";
}
/// @}

class BundleObjectTest : public BundleTest {
protected:
    bool BundleIsFree() {
        return CanBeDoneElsewhere([this] { AllServices(); });
    }

    Services AllServices() {
        Services services;
        m_bundle.GetAllServiceObjects(services);
        return services;
    }
};

}  // namespace test
