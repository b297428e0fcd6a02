// Why the agent could not start, in one line. The manager itself answers with numbers and
// tells the names to the log only.
#pragma once

#include <string>
#include <vector>

/// @return why there is nothing to start: no root, or a configuration that cannot be
///         read or names no bundle; "" when there is something
std::string Unconfigured();

/// @return the bundles that bundlemgr.cfg names, in file order, each once
std::vector<std::string> ConfiguredBundles();

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
