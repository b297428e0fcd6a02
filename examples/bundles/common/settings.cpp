#include "settings.h"

#include <bundlemgr/base.h>
#include <bundlemgr/kit.h>

#include "decimal.h"

using NS_BUNDLEMGR1::CorbaConfigItems;

namespace alarms {

namespace {

bool ParseInRange(const std::string& text, int least, int most, int& value) {
    return ParseDecimal(text, value) && value >= least && value <= most;
}

}  // namespace

int IntSetting(const char* name, int standard, int least, int most, const zo::Log& log) {
    std::string text;
    if (!CorbaConfigItems::Instance()->GetStrItemInfo(name, text)) return standard;
    int value = 0;
    if (ParseInRange(text, least, most, value)) return value;
    ZO_ERROR(log, "corba_start.cfg: %s=%s is not a decimal number from %d to %d, taking %d\n", name, text.c_str(),
             least, most, standard);
    return standard;
}

int IntSetting(const char* name, int standard, int least, int most) {
    std::string text;
    int value = 0;
    const bool found = CorbaConfigItems::Instance()->GetStrItemInfo(name, text);
    return found && ParseInRange(text, least, most, value) ? value : standard;
}

std::string PathInRoot(const std::string& path) {
    return !path.empty() && path.front() == '/' ? path : NS_BUNDLEMGR1::GetKORURootPath() + path;
}

}  // namespace alarms
