#include "settings.h"

#include <bundlemgr/base.h>
#include <bundlemgr/kit.h>

#include "decimal.h"

using NS_BUNDLEMGR1::CorbaConfigItems;

namespace alarms {

namespace {

bool ParseInRange(const std::string& text, int min, int max, int& value) {
    return ParseDecimal(text, value) && value >= min && value <= max;
}

}  // namespace

int IntSetting(const char* name, int fallback, int min, int max, const zo::Log& log) {
    std::string text;
    if (!CorbaConfigItems::Instance()->GetStrItemInfo(name, text)) return fallback;
    int value = 0;
    if (ParseInRange(text, min, max, value)) return value;
    ZO_ERROR(log, "corba_start.cfg: %s=%s is not a decimal number from %d to %d, taking %d\n", name, text.c_str(), min,
             max, fallback);
    return fallback;
}

int IntSetting(const char* name, int fallback, int min, int max) {
    std::string text;
    int value = 0;
    const bool found = CorbaConfigItems::Instance()->GetStrItemInfo(name, text);
    return found && ParseInRange(text, min, max, value) ? value : fallback;
}

std::string PathInRoot(const std::string& path) {
    return !path.empty() && path.front() == '/' ? path : NS_BUNDLEMGR1::GetKORURootPath() + path;
}

}  // namespace alarms
