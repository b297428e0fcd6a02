// Settings of the services: the items of corba_start.cfg.
#pragma once

#include <string>

#include <bundlemgr/export.h>
#include <bundlemgr/kit.h>

namespace alarms {

/// @param name     name of the item
/// @param fallback what holds when there is no such item, or when its value is not a
///                 number (`ParseDecimal`) from `min` to `max`, which is reported
///                 to `log`
ZO_PLUGIN_EXPORT int IntSetting(const char* name, int fallback, int min, int max, const zo::Log& log);

/// The same without a report: for a setting of another service, which reports it.
ZO_PLUGIN_EXPORT int IntSetting(const char* name, int fallback, int min, int max);

/// @return a path below the installation root for a relative one; an absolute one as it is
ZO_PLUGIN_EXPORT std::string PathInRoot(const std::string& path);

}  // namespace alarms
