// AlarmSvc: publishes the table of active alarms.
#include <memory>

#include <bundlemgr/kit.h>

#include "alarmtableimpl.h"

namespace {

// It has no thread: everything happens on those of its callers.
class AlarmSvc : public zo::Service {
public:
    AlarmSvc() : Service("zo_base_bundle", alarms::ALARM_SERVICE) {}

    int init(int, ACE_TCHAR*[]) override {
        Publish(std::make_unique<alarms::AlarmTableImpl>());
        ZO_INFO(m_log, "the alarm table is ready\n");
        return 0;
    }

private:
    zo::Log m_log{alarms::ALARM_SERVICE, "zo_base_bundle", alarms::ALARM_SERVICE};
};

}  // namespace

ZO_SERVICE_FACTORY(AlarmSvc, AlarmSvc);
