#include "asciiserver.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>
#include <utility>

#include <ace/Dev_Poll_Reactor.h>
#include <ace/INET_Addr.h>
#include <ace/OS_NS_sys_socket.h>
#include <ace/Thread.h>

#include "alarmtext.h"
#include "descriptors.h"

namespace alarms {

namespace {

// All interfaces: who may connect is the access list's business.
constexpr char kAnyAddress[] = "0.0.0.0";

constexpr int kAcceptPauseSeconds = 1;

// The highest descriptor that the reactor takes is below this. It keeps a table of that
// size, so what the system allows may be too much.
constexpr std::size_t kMaxDescriptors = 65536;

// So many different tables may be on their way to clients. When these are too few, a
// client that takes nothing of its table is cut off.
constexpr std::size_t kMaxTables = 8;
constexpr std::chrono::seconds kPatience(5);
constexpr int kLookAgainMicroseconds = 500 * 1000;

using Clock = std::chrono::steady_clock;

}  // namespace

// The acceptor's own operation asks select() for more connections, and breaks the process
// when its descriptor is above 1023.
int AsciiAcceptor::handle_input(ACE_HANDLE) {
    AsciiSession* const session = AsciiSession::Make(reactor());
    if (session == nullptr || accept_svc_handler(session) == -1) return handle_accept_error();
    activate_svc_handler(session);
    return 0;
}

// Out of file descriptors or memory: the connection keeps waiting, and the reactor would
// report it again at once, for ever.
int AsciiAcceptor::handle_accept_error() {
    if (errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM) return 0;
    m_server.ReportAcceptError(std::strerror(errno));
    // Not suspended: after this call the reactor resumes whatever it has called.
    reactor()->cancel_wakeup(this, ACCEPT_MASK);
    reactor()->schedule_timer(this, nullptr, ACE_Time_Value(kAcceptPauseSeconds));
    return 0;
}

int AsciiAcceptor::handle_timeout(const ACE_Time_Value&, const void*) {
    reactor()->schedule_wakeup(this, ACCEPT_MASK);
    return 0;
}

AsciiServer::AsciiServer(const Settings& settings, const zo::Log& log)
    : m_settings(settings),
      m_log(log),
      m_access(log),
      m_maxClients(static_cast<std::size_t>(settings.maxClients)),
      // Not one on select(), see above. It is deleted with its owner.
      m_reactor(new ACE_Dev_Poll_Reactor(std::min(DescriptorLimit(), kMaxDescriptors)), true),
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
    if (!m_reactor.initialized() || m_acceptor.open(address, &m_reactor, ACE_NONBLOCK) == -1 ||
        ACE_OS::listen(m_acceptor.get_handle(), SOMAXCONN) == -1 ||
        m_acceptor.acceptor().get_local_addr(address) == -1) {
        ZO_ERROR(m_log, "port %d cannot be opened: %s\n", m_settings.port, std::strerror(errno));
        return false;
    }
    m_port = address.get_port_number();
    FitIntoDescriptors();
    ZO_INFO(m_log, "serving on port %d for %s\n", m_port, m_access.Text().c_str());
    return true;
}

// Those who connect beyond that are told so, and some descriptors are left for others.
void AsciiServer::FitIntoDescriptors() {
    const std::size_t limit = DescriptorLimit();
    const std::size_t open = OpenDescriptors();
    const std::size_t others = open + OWN_DESCRIPTORS;
    if (others + m_maxClients <= limit) return;
    m_maxClients = others < limit ? limit - others : 1;
    ZO_ERROR(m_log,
             "%d clients (AsciiMaxClients) need more descriptors than the %zu of this process (ulimit -n), of "
             "which %zu are in use\n",
             m_settings.maxClients, limit, open);
    ZO_ERROR(m_log, "taking %zu clients\n", m_maxClients);
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
    m_reactor.cancel_timer(this);
    m_acceptor.close();
    CloseAll();
}

void AsciiServer::Push(const AlarmEvent& event) {
    const std::lock_guard<std::mutex> guard(m_queueMutex);
    try {
        m_queue.push_back(event);
    } catch (const std::bad_alloc&) {
        m_lost = true;
    }
    // One wake-up at a time: the reactor's pipe must never be full, writing would block.
    if (!m_woken) m_woken = m_reactor.notify(this, EXCEPT_MASK) != -1;
}

// Called by the reactor after `Push` has woken it.
int AsciiServer::handle_exception(ACE_HANDLE) {
    try {
        DeliverQueue();
    } catch (const std::bad_alloc&) {
        CloseAll();
    }
    return 0;
}

void AsciiServer::DeliverQueue() {
    std::vector<AlarmEvent> events;
    bool lost = false;
    {
        const std::lock_guard<std::mutex> guard(m_queueMutex);
        events.swap(m_queue);
        std::swap(lost, m_lost);
        m_woken = false;
    }
    if (lost) throw std::bad_alloc();
    for (const AlarmEvent& event : events) Deliver(event);
    const std::set<AsciiSession*> sessions = m_sessions;  // a copy: closing one takes it out
    for (AsciiSession* const session : sessions) {
        if (session->handle_output(ACE_INVALID_HANDLE) == -1) Close(session);
    }
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

void AsciiServer::CloseAll() {
    while (!m_sessions.empty()) Close(*m_sessions.begin());
}

bool AsciiServer::Table(std::shared_ptr<const AlarmSnapshot>& table) {
    table = Snapshot();
    if (table == nullptr || OtherTablesInUse(table.get()) < kMaxTables) return true;
    const ACE_Time_Value interval(0, kLookAgainMicroseconds);
    if (m_waitTimer == -1) m_waitTimer = m_reactor.schedule_timer(this, nullptr, interval, interval);
    if (m_waitTimer == -1) return true;
    table.reset();
    return false;
}

// Null when its service has been removed.
std::shared_ptr<const AlarmSnapshot> AsciiServer::Snapshot() {
    try {
        return m_alarms->Snapshot();
    } catch (const NS_BUNDLEMGR1::InterfaceNotExistException&) {
        return nullptr;
    }
}

std::size_t AsciiServer::OtherTablesInUse(const AlarmSnapshot* table) const {
    std::set<const AlarmSnapshot*> tables;
    for (const AsciiSession* const session : m_sessions) tables.insert(session->Table());
    tables.erase(nullptr);
    tables.erase(table);
    return tables.size();
}

// Called by the reactor while clients wait for a table.
int AsciiServer::handle_timeout(const ACE_Time_Value&, const void*) {
    try {
        if (OtherTablesInUse(nullptr) >= kMaxTables) CutOffIdle();
        if (OtherTablesInUse(nullptr) < kMaxTables) ServeThoseWhoWait();
    } catch (const std::bad_alloc&) {
        return 0;  // they go on waiting
    }
    const bool wait = std::any_of(m_sessions.begin(), m_sessions.end(),
                                  [](const AsciiSession* session) { return session->AwaitsTable(); });
    if (!wait) m_reactor.cancel_timer(std::exchange(m_waitTimer, -1));
    return 0;
}

void AsciiServer::CutOffIdle() {
    const std::set<AsciiSession*> sessions = m_sessions;
    for (AsciiSession* const session : sessions) {
        if (session->Table() == nullptr || Clock::now() - session->LastProgress() < kPatience) continue;
        ZO_ERROR(m_log, "client %s cut off, it does not take its list while others wait for theirs\n",
                 session->Client().c_str());
        Close(session);
    }
}

// All of them share one table.
void AsciiServer::ServeThoseWhoWait() {
    const std::shared_ptr<const AlarmSnapshot> table = Snapshot();
    const std::set<AsciiSession*> sessions = m_sessions;
    for (AsciiSession* const session : sessions) {
        if (session->AwaitsTable() && !session->TakeTable(table)) Close(session);
    }
}

bool AsciiServer::Admits(const std::string& host, const std::string& client) {
    const bool admitted = m_access.Allows(host);
    if (!admitted && m_refusals.ShouldTell(host, Clock::now())) {
        ZO_ERROR(m_log, "client %s refused, its address is in no acl item\n", client.c_str());
    }
    return admitted;
}

bool AsciiServer::IsFull(const std::string& host, const std::string& client) {
    const bool full = m_sessions.size() >= m_maxClients;
    if (full && m_refusals.ShouldTell(host, Clock::now())) {
        ZO_ERROR(m_log, "client %s refused, there are %zu already\n", client.c_str(), m_maxClients);
    }
    return full;
}

void AsciiServer::Join(AsciiSession* session, const std::string& client) {
    m_sessions.insert(session);
    m_acceptFails = false;
    ZO_INFO(m_log, "client %s connected\n", client.c_str());
}

void AsciiServer::Leave(AsciiSession* session, const std::string& client) {
    m_sessions.erase(session);
    ZO_INFO(m_log, "client %s disconnected\n", client.c_str());
}

void AsciiServer::ReportCutOff(const std::string& client) const {
    ZO_ERROR(m_log, "client %s cut off, more than %zu bytes wait for it\n", client.c_str(), m_settings.backlog);
}

void AsciiServer::ReportAcceptError(const char* reason) {
    // The first of those that follow each other, and that not each time it comes and goes.
    const bool first = !std::exchange(m_acceptFails, true);
    if (!first || !m_refusals.ShouldTell(reason, Clock::now())) return;
    ZO_ERROR(m_log, "no client can be accepted now: %s\n", reason);
}

}  // namespace alarms
