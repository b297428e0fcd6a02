// Why the agent could not start, in one line. The manager itself answers with numbers and
// tells the names to the log only.
#pragma once

#include <string>
#include <vector>

namespace NS_BUNDLEMGR1 {
class BundleObject;
}

/// @return why there is nothing to start: no root, or a configuration that cannot be
///         read or names no bundle; "" when there is something
std::string Unconfigured();

/// @return the bundles that bundlemgr.cfg names, in file order, each once
std::vector<std::string> ConfiguredBundles();

/// @return those of them that are loaded, in the order in which the manager initialises
///         them, and in that in which it ends them
std::vector<NS_BUNDLEMGR1::BundleObject*> BundlesInInitOrder();
std::vector<NS_BUNDLEMGR1::BundleObject*> BundlesInFiniOrder();

/// @return the services that the bundle's svc.cfg names, in file order
std::vector<std::string> ConfiguredServices(const std::string& bundle);

/// @return for each of them whose svc.cfg cannot be read: which file, and why. Such a
///         bundle runs without services
std::vector<std::string> UnreadableServices();

/// @return which of them were not loaded, separated by ", "
std::string BundlesNotLoaded();

/// @return why the log cannot be written; "" when it can be
std::string LogTrouble();

/// @return the bundle whose initialisation failed, with the service that failed if it
///         was one: "zo_domain_bundle (service FeedSvc)"
std::string BundleNotInitialised();
