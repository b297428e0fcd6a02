// One alarm of a network element, as the services of the agent hand it around. All
// texts are UTF-8.
#pragma once

#include <string>
#include <vector>

#include <bundlemgr/export.h>
#include <bundlemgr/schema.h>

namespace alarms {

/// How bad it is; the numbers are those that upper systems know.
enum Severity : int {
    SEVERITY_INDETERMINATE = 0,
    SEVERITY_CRITICAL = 1,
    SEVERITY_MAJOR = 2,
    SEVERITY_MINOR = 3,
    SEVERITY_WARNING = 4,
};
constexpr int SEVERITY_COUNT = 5;

/// @return "indeterminate", "critical", "major", "minor" or "warning"
ZO_PLUGIN_EXPORT const char* SeverityName(Severity severity);

/// The reverse of `SeverityName`.
/// @return false, and `severity` untouched, when `name` is none of the names
ZO_PLUGIN_EXPORT bool ParseSeverity(const std::string& name, Severity& severity);

/// What happened to an alarm.
enum AlarmChange : int {
    ALARM_RAISED = 1,
    ALARM_CHANGED = 2,
    ALARM_CLEARED = 3,
};

struct Alarm {
    std::string id;      ///< Given by the network element; tells alarms apart, never empty.
    std::string object;  ///< What has the trouble, for example "NE-17/slot-3/port-1".
    Severity severity = SEVERITY_INDETERMINATE;
    std::string cause;    ///< The probable cause, for example "loss of signal".
    std::string time;     ///< When, in the network element's own words.
    std::string text;     ///< For the human reader.
    std::string ackUser;  ///< Who has acknowledged it; empty: nobody yet.
};

/// @return the names of an alarm's attributes in the order in which they are listed to
///         clients: "object", "severity", "cause", "time", "text", "ack.user". The id
///         is not among them: it is what an alarm is known by and never changes
ZO_PLUGIN_EXPORT const std::vector<std::string>& AttributeNames();

/// @return the value of the attribute as a text; "" for an unknown name
ZO_PLUGIN_EXPORT std::string AttributeText(const Alarm& alarm, const std::string& name);

/// @return false, and `alarm` untouched, for an unknown name or a text that is no value
///         of that attribute (which only "severity" is particular about)
ZO_PLUGIN_EXPORT bool SetAttribute(Alarm& alarm, const std::string& name, const std::string& text);

/// @return the description of an alarm's attributes with no flag set. `AttributeNames`
///         are its paths; "ack.user" is the property "user" in the sub-schema of "ack"
ZO_PLUGIN_EXPORT ObjectSchema_T MakeAlarmSchema();

}  // namespace alarms
