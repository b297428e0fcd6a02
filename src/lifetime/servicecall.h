// May this service be called now, and will it still be there when the call returns?
#pragma once

#include "src/lifetime/inservice.h"
#include "src/lifetime/liveservices.h"

namespace NS_BUNDLEMGR1 {

/// A call of the library into a service, which is not destroyed by another thread meanwhile.
class ServiceCall {
public:
    /// @param id the number of the object that is meant; 0: whichever lives there
    ServiceCall(const ServiceObjectBase* service, unsigned long id, CallPurpose purpose);
    ~ServiceCall();
    ServiceCall(const ServiceCall&) = delete;
    ServiceCall& operator=(const ServiceCall&) = delete;

    /// @return whether the service may be called
    explicit operator bool() const { return m_nId != 0; }

private:
    const ServiceObjectBase* const m_pService;
    const unsigned long m_nId;
    const InService m_scope;
};

}  // namespace NS_BUNDLEMGR1
