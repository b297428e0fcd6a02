// AlarmSvc: publishes the table of active alarms.
#include "alarmtableimpl.h"
#include "servicelog.h"

namespace {

using NS_BUNDLEMGR1::ServiceObjectBase;

class AlarmSvc : public ServiceObjectBase {
public:
    AlarmSvc() : ServiceObjectBase("zo_base_bundle", alarms::ALARM_SERVICE) {}
    ~AlarmSvc() override { Withdraw(); }

    int init(int, ACE_TCHAR*[]) override {
        SetInterface();
        m_log.Info(__LINE__, "the alarm table is ready");
        return 0;
    }

    int fini() override {
        Withdraw();
        return ServiceObjectBase::fini();
    }

    void SetInterface() override { m_pInterface = new alarms::AlarmTableImpl; }

    // Everything here happens on the threads of the callers.
    void ExitThreads() override {}

private:
    // The registry of interfaces does not notice that a service goes: whoever asks
    // later must get an exception and not a pointer to what has been deleted.
    void Withdraw() {
        if (m_pInterface == nullptr) return;
        NS_BUNDLEMGR1::SetIFBuf(alarms::ALARM_SERVICE, nullptr);
        RemoveInterface();
    }

    alarms::ServiceLog m_log{"zo_base_bundle", alarms::ALARM_SERVICE, "alarmsvc"};
};

}  // namespace

ZO_SERVICE_FACTORY(AlarmSvc, AlarmSvc);
