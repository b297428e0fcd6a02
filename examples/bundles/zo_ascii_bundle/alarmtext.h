// Alarms as lines of text in the local character set, each with its line end.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "alarm.h"
#include "alarmevent.h"
#include "alarmtable.h"

namespace alarms {

/// The whole table: a head line "<word> <number of alarms> <sequence>", a line
/// "ALARM id=...;<attribute>=...;..." for each alarm, and "END". It is made piece by piece,
/// for whoever does not take it at once: all who have the same table share one.
class TableText {
public:
    /// Nothing, which is over.
    TableText() = default;
    TableText(const char* word, std::shared_ptr<const AlarmSnapshot> table);

    bool IsOver() const { return m_table == nullptr; }

    /// Appends what comes next until `text` has at least `size` bytes or nothing is left.
    void AppendTo(std::string& text, std::size_t size);

    /// @return the table; null when the text is over
    const AlarmSnapshot* Table() const { return m_table.get(); }

private:
    std::string m_head;  // until it is appended
    std::shared_ptr<const AlarmSnapshot> m_table;
    std::size_t m_next = 0;  // alarm
};

/// "RAISED", "CHANGED" or "CLEARED", the sequence number of the change, the id and the
/// attributes that changed: "CHANGED 18 id=1001;severity=minor".
///
/// A ";" or a control character inside a value goes out as a blank, so that a line
/// always is one line and can be taken apart at the ";".
std::string ChangeText(const AlarmEvent& event);

}  // namespace alarms
