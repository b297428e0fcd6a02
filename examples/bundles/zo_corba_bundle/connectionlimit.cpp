#include "connectionlimit.h"

#include <algorithm>

#include <omniORB4/internal/giopStrand.h>

#include "descriptors.h"
#include "settings.h"
#include "textclients.h"

namespace corba_bundle {

namespace {

namespace TextClients = alarms::TextClients;

// A client that finds the limit reached tends to try again and again.
constexpr std::chrono::minutes kReportEvery{1};

// In the part of the flags that omniORB leaves to us: a connection that counts.
constexpr CORBA::ULong kAdmitted = 1U << 31;
static_assert((kAdmitted & GIOPSTRAND_APPLICATION_MASK) != 0);

// What an interceptor is called with does not tell whose it is.
std::atomic<ConnectionLimit*> g_limit{nullptr};

}  // namespace

void ConnectionLimit::Begin(std::size_t most) {
    m_most = most;
    const std::size_t limit = alarms::DescriptorLimit();
    const std::size_t open = alarms::OpenDescriptors();
    // The clients of the text server come when they like.
    const int textClients =
        alarms::IntSetting(TextClients::ITEM, TextClients::DEFAULT, TextClients::MIN, TextClients::MAX);
    const std::size_t others = open + alarms::OWN_DESCRIPTORS + static_cast<std::size_t>(textClients);
    if (others + most > limit) {
        m_most = others < limit ? limit - others : 1;
        ZO_ERROR(m_log,
                 "%zu connections (CorbaMaxConnections) need more descriptors than the %zu of this process (ulimit "
                 "-n), of which %zu are in use; taking %zu connections\n",
                 most, limit, open, m_most);
    }
    g_limit = this;
    omniORB::getInterceptors()->serverAcceptConnection.add(OnConnection);
}

void ConnectionLimit::End() {
    if (g_limit.exchange(nullptr) == nullptr) return;
    omniORB::getInterceptors()->serverAcceptConnection.remove(OnConnection);
}

void ConnectionLimit::CheckDescriptors() {
    switch (m_spare.Check()) {
        case SpareDescriptor::RUN_OUT:
            ZO_ERROR(m_log, "no file descriptor is left; closing new connections (ulimit -n raises the limit)\n");
            break;
        case SpareDescriptor::THERE_AGAIN:
            ZO_INFO(m_log, "there are file descriptors again\n");
            break;
        case SpareDescriptor::AS_BEFORE:
            break;
    }
}

CORBA::Boolean ConnectionLimit::OnConnection(Connection& connection) {
    ConnectionLimit* const limit = g_limit;
    if (limit != nullptr) limit->Judge(connection);
    return true;  // whoever else intercepts connections is asked as well
}

void ConnectionLimit::Judge(Connection& connection) {
    if (m_spare.HasRunOut()) {
        connection.reject = true;
        connection.why = "no file descriptor is left";
    } else if (!Admit(connection.strand)) {
        connection.reject = true;
        connection.why = "too many connections";
        ReportTooMany();
    }
}

bool ConnectionLimit::Admit(omni::giopStrand& strand) const {
    const omni_tracedmutex_lock guard(*omni::omniTransportLock);
    const omni::StrandList& all = omni::giopStrand::passive;
    std::size_t admitted = 0;
    for (const omni::StrandList* it = all.next; it != &all; it = it->next) {
        if ((static_cast<const omni::giopStrand*>(it)->flags & kAdmitted) != 0) ++admitted;
    }
    if (admitted >= m_most) return false;
    strand.flags |= kAdmitted;
    return true;
}

void ConnectionLimit::ReportTooMany() {
    const Clock::time_point now = Clock::now();
    Clock::time_point next = m_nextReport;
    if (now < next || !m_nextReport.compare_exchange_strong(next, now + kReportEvery)) return;
    ZO_ERROR(m_log, "more than %zu connections (CorbaMaxConnections); closing the latest\n", m_most);
}

}  // namespace corba_bundle
