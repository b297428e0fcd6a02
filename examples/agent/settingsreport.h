// What is wrong with the settings, before anybody goes by them.
#pragma once

#include <string>
#include <vector>

/// Reads corba_start.cfg for what the services cannot see: they ask for their settings
/// by name, and one that is not there is one that nobody has set.
///
/// @return a line for each: the file cannot be read; a line that the library reads
///         otherwise than it stands there; a line or a key that means nothing
std::vector<std::string> SettingsTroubles();
