// Who ends this service, and is the last to call it?
#pragma once

#include "src/lifetime/inservice.h"
#include "src/lifetime/liveservices.h"

namespace NS_BUNDLEMGR1 {

/// The end of a service, on this thread: while this object lives, no other thread calls the
/// service, and afterwards it counts as gone.
class ServiceEnd {
public:
    explicit ServiceEnd(const ServiceObjectBase* service) : m_pService(service), m_nId(LiveServices::IdOf(service)) {
        LiveServices::Retire(service);
    }
    ~ServiceEnd() {
        // Without an exterminator the object was freed without its destructor.
        if (m_nId != 0) LiveServices::Remove(m_pService, m_nId);
    }
    ServiceEnd(const ServiceEnd&) = delete;
    ServiceEnd& operator=(const ServiceEnd&) = delete;

private:
    const ServiceObjectBase* const m_pService;
    const unsigned long m_nId;
    const InService m_scope;
};

}  // namespace NS_BUNDLEMGR1
