// The agent's feed file, and what it leads to.
#pragma once

#include <string>

#include "support/count.h"

namespace test {

/// The feed file, below the agent's root.
constexpr char kFeed[] = "var/alarms.feed";

/// A line of it that raises an alarm.
inline std::string RaiseLine(const std::string& id, const std::string& text = "trouble") {
    return "event=raise;id=" + id + ";object=NE-" + id + ";severity=major;cause=link down;time=12:00:00;text=" + text +
           "\n";
}

/// What a client that lists the alarms is told of it.
inline std::string AlarmText(const std::string& id, const std::string& text = "trouble") {
    return "ALARM id=" + id + ";object=NE-" + id + ";severity=major;cause=link down;time=12:00:00;text=" + text +
           ";ack.user=\n";
}

}  // namespace test
