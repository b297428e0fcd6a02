#include "settings.h"

#include "bundlemgr/base.h"
#include "decimal.h"

using NS_BUNDLEMGR1::CorbaConfigItems;

namespace alarms {

int IntSetting(const char* name, int standard, int least, int most, ServiceLog& log) {
    std::string text;
    if (!CorbaConfigItems::Instance()->GetStrItemInfo(name, text)) return standard;
    int value = 0;
    if (ParseDecimal(text, value) && value >= least && value <= most) return value;
    log.Error(__LINE__, "corba_start.cfg: %s=%s is not a decimal number from %d to %d, taking %d", name, text.c_str(),
              least, most, standard);
    return standard;
}

std::string PathInRoot(const std::string& path) {
    return !path.empty() && path.front() == '/' ? path : NS_BUNDLEMGR1::GetKORURootPath() + path;
}

}  // namespace alarms
