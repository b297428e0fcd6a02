// Alarms as lines of text in the local character set, each with its line end.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "alarm.h"
#include "alarmevent.h"

namespace alarms {

/// The whole table: a head line "<word> <number of alarms> <sequence>", a line
/// "ALARM id=...;<attribute>=...;..." for each alarm, and "END".
std::string TableText(const char* word, const std::vector<Alarm>& alarms, std::uint64_t sequence);

/// "RAISED", "CHANGED" or "CLEARED", the sequence number of the change, the id and the
/// attributes that changed: "CHANGED 18 id=1001;severity=minor".
///
/// A ";" or a control character inside a value goes out as a blank, so that a line
/// always is one line and can be taken apart at the ";".
std::string ChangeText(const AlarmEvent& event);

}  // namespace alarms
