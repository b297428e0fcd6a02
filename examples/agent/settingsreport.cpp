#include "settingsreport.h"

#include <algorithm>
#include <iterator>

#include "configlines.h"

namespace {

// What corba_start.cfg may hold. A setting of a new service goes here, too.
constexpr const char* kKeys[] = {
    "CharacterSetSwitch",
    "LocalCharset",
    "acl",
    "FeedFile",
    "FeedPollMilliseconds",
    "AsciiPort",
    "AsciiMaxClients",
    "AsciiBacklog",
    "HeartbeatSeconds",
    "CorbaAgentUseIp",
    "NamingServiceUseIp",
    "NotifyServiceUseIp",
    "CorbaAgentPort",
    "NamingServicePort",
    "NotifyServicePort",
    "CorbaMaxConnections",
    "CorbaIteratorIdleSeconds",
    "NotifyQueueLength",
};

bool IsKnown(const std::string& key) {
    return std::find(std::begin(kKeys), std::end(kKeys), key) != std::end(kKeys);
}

// "" for a line with nothing wrong.
std::string Trouble(const alarms::ConfigLine& line) {
    if (!line.fault.empty()) return line.fault + "; it is not read as it stands there";
    if (line.name.empty()) return "not key=value; line skipped";
    return IsKnown(line.name) ? "" : "unknown key '" + line.name + "'";
}

}  // namespace

std::vector<std::string> SettingsTroubles() {
    const std::string file = alarms::StartFile();
    const alarms::ConfigLines lines(file);
    if (!lines.Trouble().empty()) return {"cannot read " + file + ": " + lines.Trouble() + "; nothing is set"};
    std::vector<std::string> troubles;
    for (const alarms::ConfigLine& line : lines.Lines()) {
        const std::string trouble = Trouble(line);
        if (!trouble.empty()) troubles.push_back(file + ":" + std::to_string(line.number) + ": " + trouble);
    }
    return troubles;
}
