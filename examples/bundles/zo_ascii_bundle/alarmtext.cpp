#include "alarmtext.h"

#include <algorithm>
#include <utility>

#include <bundlemgr/base.h>

namespace alarms {

namespace {

std::string Value(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == ';' || static_cast<unsigned char>(c) < ' ' || c == 0x7f; },
        ' ');
    return text;
}

std::string Attributes(const Alarm& alarm, const std::vector<std::string>& names) {
    std::string text = "id=" + Value(alarm.id);
    for (const std::string& name : names) text += ";" + name + "=" + Value(AttributeText(alarm, name));
    return text;
}

// What has no place in the local character set goes out as "?".
std::string LocalLine(const std::string& text) {
    std::string local;
    if (!NS_BUNDLEMGR1::Utf2Local(local, text)) {
        local = text;
        std::replace_if(
            local.begin(), local.end(), [](char c) { return static_cast<unsigned char>(c) > 0x7f; }, '?');
    }
    return local + "\n";
}

const char* ChangeWord(AlarmChange change) {
    switch (change) {
        case ALARM_RAISED:
            return "RAISED";
        case ALARM_CLEARED:
            return "CLEARED";
        default:
            return "CHANGED";
    }
}

}  // namespace

TableText::TableText(const char* word, std::shared_ptr<const AlarmSnapshot> table)
    : m_head(std::string(word) + " " + std::to_string(table->alarms.size()) + " " + std::to_string(table->sequence) +
             "\n"),
      m_table(std::move(table)) {}

void TableText::AppendTo(std::string& text, std::size_t size) {
    if (IsOver()) return;
    text += m_head;
    m_head.clear();
    for (; text.size() < size && m_next < m_table->alarms.size(); ++m_next) {
        text += LocalLine("ALARM " + Attributes(m_table->alarms[m_next], AttributeNames()));
    }
    if (m_next < m_table->alarms.size()) return;
    text += "END\n";
    m_table.reset();
}

std::string ChangeText(const AlarmEvent& event) {
    return LocalLine(std::string(ChangeWord(event.m_change)) + " " + std::to_string(event.m_sequence) + " " +
                     Attributes(event.m_alarm, event.m_attributes));
}

}  // namespace alarms
