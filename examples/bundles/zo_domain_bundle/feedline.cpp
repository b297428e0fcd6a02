#include "feedline.h"

#include <algorithm>
#include <set>

#include "alarm.h"

using NS_BUNDLEMGR1::NameValueStru;
using NS_BUNDLEMGR1::Trim;

namespace alarms {

namespace {

bool HasControlCharacter(const std::string& text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7f; });
}

bool Split(const std::string& text, std::vector<NameValueStru>& fields, std::string& reason) {
    std::vector<std::string> pieces;
    NS_BUNDLEMGR1::Str2StrVec(text.c_str(), ';', pieces);
    std::set<std::string> names;
    for (const std::string& piece : pieces) {
        const std::string::size_type equals = piece.find('=');
        if (equals == std::string::npos) {
            reason = "'" + piece + "' is not key=value";
            return false;
        }
        fields.push_back({Trim(piece.substr(0, equals)), Trim(piece.substr(equals + 1))});
        if (!names.insert(fields.back().name).second) {
            reason = "'" + fields.back().name + "' stands there twice";
            return false;
        }
    }
    return true;
}

bool ParseEvent(const std::string& name, FeedLine::Event& event) {
    if (name == "raise") {
        event = FeedLine::RAISE;
    } else if (name == "change") {
        event = FeedLine::CHANGE;
    } else if (name == "clear") {
        event = FeedLine::CLEAR;
    } else {
        return false;
    }
    return true;
}

// What the network elements have a say in: everything but the acknowledgement.
bool IsFeedAttribute(const std::string& name) {
    const std::vector<std::string>& names = AttributeNames();
    return name != "ack.user" && std::find(names.begin(), names.end(), name) != names.end();
}

bool TakeField(const NameValueStru& field, FeedLine& line, std::string& reason) {
    if (field.name == "event") {
        if (ParseEvent(field.value, line.event)) return true;
        reason = "unknown event '" + field.value + "'";
        return false;
    }
    if (field.name == "id") {
        line.id = field.value;
        return true;
    }
    if (!IsFeedAttribute(field.name)) {
        reason = "unknown key '" + field.name + "'";
        return false;
    }
    Alarm scratch;
    if (!SetAttribute(scratch, field.name, field.value)) {
        reason = "unknown " + field.name + " '" + field.value + "'";
        return false;
    }
    line.attributes.push_back(field);
    return true;
}

// What is missing, or there and out of place; "" when nothing is.
std::string Complaint(const FeedLine& line, const std::vector<NameValueStru>& fields) {
    std::string value;
    const auto lacks = [&fields, &value](const char* name) {
        return !NS_BUNDLEMGR1::GetValByKey(value, name, fields) || value.empty();
    };
    if (lacks("event")) return "'event' is missing";
    if (line.id.empty()) return "'id' is missing";
    if (line.event == FeedLine::RAISE && lacks("object")) return "'object' is missing";
    if (line.event == FeedLine::RAISE && lacks("severity")) return "'severity' is missing";
    if (line.event == FeedLine::CHANGE && line.attributes.empty()) return "nothing to change";
    if (line.event == FeedLine::CLEAR && !line.attributes.empty()) return "a clear has an id only";
    return "";
}

}  // namespace

bool ParseFeedLine(const std::string& local, FeedLine& line, std::string& reason) {
    // Asked before the conversion, which ends at a NUL. No local character set has such
    // a byte within a character.
    if (HasControlCharacter(local)) {
        reason = "a control character";
        return false;
    }
    std::string text;
    if (!NS_BUNDLEMGR1::Local2Utf(text, local)) {
        reason = "not in the local character set";
        return false;
    }
    std::vector<NameValueStru> fields;
    if (!Split(text, fields, reason)) return false;
    line = FeedLine();
    for (const NameValueStru& field : fields) {
        if (!TakeField(field, line, reason)) return false;
    }
    reason = Complaint(line, fields);
    return reason.empty();
}

}  // namespace alarms
