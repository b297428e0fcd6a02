#include "src/lifetime/servicecall.h"

#include <bundlemgr/bundle.h>

namespace NS_BUNDLEMGR1 {

ServiceCall::ServiceCall(const ServiceObjectBase* service, unsigned long id, CallPurpose purpose)
    : m_pService(service), m_nId(LiveServices::BeginCall(service, id, purpose)) {}

ServiceCall::~ServiceCall() {
    if (m_nId != 0) delete LiveServices::EndCall(m_pService, m_nId);
}

}  // namespace NS_BUNDLEMGR1
