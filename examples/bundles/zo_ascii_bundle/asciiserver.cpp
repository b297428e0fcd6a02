#include "asciiserver.h"

#include <cerrno>
#include <chrono>
#include <cstring>

#include <ace/INET_Addr.h>
#include <ace/OS_NS_sys_socket.h>
#include <ace/Select_Reactor.h>
#include <ace/Thread.h>

#include "alarmtext.h"

namespace alarms {

namespace {

// All interfaces: who may connect is the access list's business.
constexpr char kAnyAddress[] = "0.0.0.0";

constexpr int kAcceptPauseSeconds = 1;

using Clock = std::chrono::steady_clock;

}  // namespace

// Out of file descriptors or memory: the connection keeps waiting, and the reactor would
// report it again at once, for ever.
int AsciiAcceptor::handle_accept_error() {
    if (errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM) return 0;
    m_server.ReportAcceptError(std::strerror(errno));
    reactor()->suspend_handler(this);
    reactor()->schedule_timer(this, nullptr, ACE_Time_Value(kAcceptPauseSeconds));
    return 0;
}

int AsciiAcceptor::handle_timeout(const ACE_Time_Value&, const void*) {
    reactor()->resume_handler(this);
    return 0;
}

AsciiServer::AsciiServer(const Settings& settings, ServiceLog& log)
    : m_settings(settings),
      m_log(log),
      m_access(log),
      m_reactor(new ACE_Select_Reactor, true),  // which deletes it
      m_acceptor(*this),
      m_thread(log) {}

AsciiServer::~AsciiServer() {
    Stop();
}

bool AsciiServer::Listen() {
    // The first look-up takes locks that the thread must not take while the service is
    // being ended; later ones take none.
    m_alarms.GetInterface();
    ACE_INET_Addr address(static_cast<u_short>(m_settings.port), kAnyAddress);
    // The acceptor asks for a queue of 5. Clients that come back all at once, after a
    // restart of the agent, would overflow it and wait for seconds until they try again.
    if (m_acceptor.open(address, &m_reactor, ACE_NONBLOCK) == -1 ||
        ACE_OS::listen(m_acceptor.get_handle(), SOMAXCONN) == -1 ||
        m_acceptor.acceptor().get_local_addr(address) == -1) {
        m_log.Error(__LINE__, "port %d cannot be opened: %s", m_settings.port, std::strerror(errno));
        return false;
    }
    m_port = address.get_port_number();
    m_log.Info(__LINE__, "serving on port %d for %s", m_port, m_access.Text().c_str());
    return true;
}

void AsciiServer::Serve() {
    m_thread.Start([this] {
        m_reactor.owner(ACE_Thread::self());
        m_reactor.run_reactor_event_loop();
        return std::chrono::milliseconds(0);
    });
}

void AsciiServer::Stop() {
    m_reactor.end_reactor_event_loop();
    m_thread.Stop();
    // Nobody else uses the reactor any more.
    m_reactor.cancel_timer(&m_acceptor);
    m_acceptor.close();
    while (!m_sessions.empty()) Close(*m_sessions.begin());
}

void AsciiServer::Push(const AlarmEvent& event) {
    const std::lock_guard<std::mutex> guard(m_queueMutex);
    m_queue.push_back(event);
    // One wake-up at a time: the reactor's pipe must never be full, writing would block.
    if (!m_woken) m_woken = m_reactor.notify(this, EXCEPT_MASK) != -1;
}

// Called by the reactor after `Push` has woken it.
int AsciiServer::handle_exception(ACE_HANDLE) {
    std::vector<AlarmEvent> events;
    {
        const std::lock_guard<std::mutex> guard(m_queueMutex);
        events.swap(m_queue);
        m_woken = false;
    }
    for (const AlarmEvent& event : events) Deliver(event);
    const std::set<AsciiSession*> sessions = m_sessions;  // a copy: closing one takes it out
    for (AsciiSession* const session : sessions) {
        if (session->handle_output(ACE_INVALID_HANDLE) == -1) Close(session);
    }
    return 0;
}

void AsciiServer::Deliver(const AlarmEvent& event) {
    std::string text;  // made once, and only if somebody wants it
    const std::set<AsciiSession*> sessions = m_sessions;
    for (AsciiSession* const session : sessions) {
        if (!session->Wants(event.m_sequence)) continue;
        if (text.empty()) text = ChangeText(event);
        if (!session->Deliver(event.m_sequence, text)) Close(session);
    }
}

void AsciiServer::Close(AsciiSession* session) {
    // Leads to the session's handle_close, by which it leaves the set and deletes itself.
    m_reactor.remove_handler(session, ALL_EVENTS_MASK);
}

bool AsciiServer::Table(const char* word, std::string& text, std::uint64_t& sequence) {
    std::vector<Alarm> alarms;
    try {
        sequence = m_alarms->List(alarms);
    } catch (const NS_BUNDLEMGR1::InterfaceNotExistException&) {
        return false;  // its service has been removed
    }
    text = TableText(word, alarms, sequence);
    return true;
}

bool AsciiServer::Admits(const std::string& host, const std::string& client) {
    const bool admitted = m_access.Allows(host);
    if (!admitted && m_refusals.ShouldTell(host, Clock::now())) {
        m_log.Error(__LINE__, "client %s refused, its address is in no acl item", client.c_str());
    }
    return admitted;
}

bool AsciiServer::IsFull(const std::string& host, const std::string& client) {
    const bool full = m_sessions.size() >= static_cast<std::size_t>(m_settings.maxClients);
    if (full && m_refusals.ShouldTell(host, Clock::now())) {
        m_log.Error(__LINE__, "client %s refused, there are %d already", client.c_str(), m_settings.maxClients);
    }
    return full;
}

void AsciiServer::Enter(AsciiSession* session, const std::string& client) {
    m_sessions.insert(session);
    m_log.Info(__LINE__, "client %s connected", client.c_str());
}

void AsciiServer::Leave(AsciiSession* session, const std::string& client) {
    m_sessions.erase(session);
    m_log.Info(__LINE__, "client %s disconnected", client.c_str());
}

void AsciiServer::ReportCutOff(const std::string& client) {
    m_log.Error(__LINE__, "client %s cut off, more than %zu bytes wait for it", client.c_str(), m_settings.backlog);
}

void AsciiServer::ReportAcceptError(const char* reason) {
    m_log.Error(__LINE__, "no client can be accepted now: %s", reason);
}

}  // namespace alarms
