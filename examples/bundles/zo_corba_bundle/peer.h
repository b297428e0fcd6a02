// A server on which the agent depends and which may be away.
#pragma once

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include <omniORB4/CORBA.h>

#include <bundlemgr/kit.h>

#include "corbainterfaces.h"

namespace corba_bundle {

/// @return what went wrong, in a few words
inline std::string Describe(const CORBA::Exception& error) {
    const auto* const system = CORBA::SystemException::_downcast(&error);
    const char* const detail = system != nullptr ? system->NP_minorString() : nullptr;
    return detail != nullptr ? detail : error._name();
}

/// Reports each outage once, not with every try, and tells when to try again: the wait
/// doubles from try to try, so that a server that is away for long is not hammered, up
/// to a limit, so that its return is noticed. For one thread.
class Peer {
public:
    /// @param service the service that reports
    /// @param what    how it calls the server
    Peer(const char* service, std::string what) : m_log(service, BUNDLE, service), m_what(std::move(what)) {}

    /// Whether it failed to answer when it was last called.
    bool IsAway() const { return m_state == AWAY; }

    /// It has answered.
    void Here() {
        if (m_state != HERE) ZO_INFO(m_log, "%s is there\n", m_what.c_str());
        m_state = HERE;
        m_delay = kFirstDelay;
    }

    /// It has not. @return how long to wait before the next try
    std::chrono::milliseconds Away(const std::string& why) {
        if (m_state != AWAY) ZO_ERROR(m_log, "%s is away (%s), trying again\n", m_what.c_str(), why.c_str());
        m_state = AWAY;
        return std::exchange(m_delay, std::min(m_delay * 2, kLongestDelay));
    }

private:
    static constexpr std::chrono::milliseconds kFirstDelay{200};
    static constexpr std::chrono::milliseconds kLongestDelay{5000};

    const zo::Log m_log;
    const std::string m_what;
    enum { UNKNOWN, HERE, AWAY } m_state = UNKNOWN;
    std::chrono::milliseconds m_delay = kFirstDelay;
};

}  // namespace corba_bundle
