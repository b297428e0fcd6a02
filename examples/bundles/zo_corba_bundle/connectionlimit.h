// How many clients the ORB serves.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>

#include <omniORB4/CORBA.h>
#include <omniORB4/omniInterceptors.h>

#include <bundlemgr/kit.h>

#include "sparedescriptor.h"

namespace corba_bundle {

/// Closes connections of clients beyond a limit, before a request is read from them. By
/// itself omniORB takes as many as there are descriptors; when there are none left, the
/// thread that accepts connections tries again and again without a pause.
///
/// There is one at a time, as there is one ORB. The ORB calls it from many threads.
class ConnectionLimit {
public:
    /// @param log receives the reports; must live as long as the limit
    explicit ConnectionLimit(const zo::Log& log) : m_log(log) {}
    ConnectionLimit(const ConnectionLimit&) = delete;
    ConnectionLimit& operator=(const ConnectionLimit&) = delete;

    /// To be called when there is an ORB, before it takes connections.
    /// @param most connections at a time; fewer are taken, which is reported, where the
    ///             process may not open so many files
    void Begin(std::size_t most);

    /// To be called when the ORB takes no connections any more.
    void End();

    /// Sees whether descriptors have run out; to be called every second or so.
    void CheckDescriptors();

private:
    using Clock = std::chrono::steady_clock;
    using Connection = omni::omniInterceptors::serverAcceptConnection_T::info_T;

    static CORBA::Boolean OnConnection(Connection& connection);
    void Judge(Connection& connection);
    bool Admit(omni::giopStrand& strand) const;
    void ReportTooMany();

    const zo::Log& m_log;
    std::size_t m_most = 0;
    SpareDescriptor m_spare;
    std::atomic<Clock::time_point> m_nextReport{Clock::time_point()};
};

}  // namespace corba_bundle
