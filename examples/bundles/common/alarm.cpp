#include "alarm.h"

#include <memory>

namespace alarms {

namespace {

constexpr const char* kSeverityNames[SEVERITY_COUNT] = {"indeterminate", "critical", "major", "minor", "warning"};

constexpr char kSeverity[] = "severity";
constexpr char kAcknowledgement[] = "ack";
constexpr char kAcknowledgementUser[] = "user";

/// An attribute whose value is a text of its own.
struct TextAttribute {
    const char* name;
    std::string Alarm::*member;
};

constexpr TextAttribute kTextAttributes[] = {
    {"object", &Alarm::object}, {"cause", &Alarm::cause},      {"time", &Alarm::time},
    {"text", &Alarm::text},     {"ack.user", &Alarm::ackUser},
};

std::string Alarm::*TextMember(const std::string& name) {
    for (const TextAttribute& attribute : kTextAttributes) {
        if (name == attribute.name) return attribute.member;
    }
    return nullptr;
}

Property_T Plain(const std::string& name) {
    Property_T property;
    property.name = name;
    return property;
}

}  // namespace

const char* SeverityName(Severity severity) {
    return severity >= 0 && severity < SEVERITY_COUNT ? kSeverityNames[severity]
                                                      : kSeverityNames[SEVERITY_INDETERMINATE];
}

bool ParseSeverity(const std::string& name, Severity& severity) {
    for (int candidate = 0; candidate < SEVERITY_COUNT; ++candidate) {
        if (name != kSeverityNames[candidate]) continue;
        severity = static_cast<Severity>(candidate);
        return true;
    }
    return false;
}

const std::vector<std::string>& AttributeNames() {
    static const std::vector<std::string> names = {"object", kSeverity, "cause", "time", "text", "ack.user"};
    return names;
}

std::string AttributeText(const Alarm& alarm, const std::string& name) {
    if (name == kSeverity) return SeverityName(alarm.severity);
    std::string Alarm::*const member = TextMember(name);
    return member != nullptr ? alarm.*member : std::string();
}

bool SetAttribute(Alarm& alarm, const std::string& name, const std::string& text) {
    if (name == kSeverity) return ParseSeverity(text, alarm.severity);
    std::string Alarm::*const member = TextMember(name);
    if (member == nullptr) return false;
    alarm.*member = text;
    return true;
}

ObjectSchema_T MakeAlarmSchema() {
    ObjectSchema_T schema;
    schema.name = "Alarm";
    for (const char* const name : {"object", kSeverity, "cause", "time", "text"}) {
        schema.properties.push_back(Plain(name));
    }
    auto acknowledgement = std::make_unique<ObjectSchema_T>();
    acknowledgement->name = "Acknowledgement";
    acknowledgement->properties.push_back(Plain(kAcknowledgementUser));
    schema.properties.push_back(Plain(kAcknowledgement));
    schema.properties.back().subSchema = acknowledgement.release();  // the property owns it
    return schema;
}

}  // namespace alarms
