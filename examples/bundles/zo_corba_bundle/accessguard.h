// Who may be a client of the ORB.
#pragma once

#include <omniORB4/CORBA.h>
#include <omniORB4/omniInterceptors.h>

#include <bundlemgr/kit.h>

#include "accesslist.h"
#include "refusallog.h"

namespace corba_bundle {

/// Closes connections from addresses that are in no `acl` item, before a request is read
/// from them. omniORB's own rules for addresses would do so without a word.
///
/// There is one at a time, as there is one ORB. The ORB calls it from many threads.
class AccessGuard {
public:
    /// @param log receives the reports; must live as long as the guard
    explicit AccessGuard(const zo::Log& log) : m_log(log), m_access(log) {}
    AccessGuard(const AccessGuard&) = delete;
    AccessGuard& operator=(const AccessGuard&) = delete;

    /// To be called when there is an ORB, before it takes connections.
    void Begin();

    /// To be called when the ORB takes no connections any more.
    void End();

private:
    using Connection = omni::omniInterceptors::serverAcceptConnection_T::info_T;

    static CORBA::Boolean OnConnection(Connection& connection);
    bool Admits(const char* peer);

    const zo::Log& m_log;
    const alarms::AccessList m_access;
    alarms::RefusalLog m_refusals;
};

}  // namespace corba_bundle
