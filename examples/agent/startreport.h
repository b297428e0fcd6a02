// Why the agent could not start, in one line. The manager itself answers with numbers and
// tells the names to the log only.
#pragma once

#include <string>
#include <vector>

/// @return the bundles that bundlemgr.cfg names, in file order, each once
std::vector<std::string> ConfiguredBundles();

/// @return which of them were not loaded, separated by ", "
std::string BundlesNotLoaded();

/// @return the bundle whose initialisation failed, with the service that failed if it
///         was one: "zo_domain_bundle (service FeedSvc)"
std::string BundleNotInitialised();
