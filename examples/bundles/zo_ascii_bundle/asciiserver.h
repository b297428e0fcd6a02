// The text server: an acceptor and its clients' sessions on a reactor and a thread of
// their own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <ace/Acceptor.h>
#include <ace/Event_Handler.h>
#include <ace/Reactor.h>
#include <ace/SOCK_Acceptor.h>

#include "accesslist.h"
#include "alarmevent.h"
#include "alarmtable.h"
#include "asciisession.h"
#include "bundlemgr/bundle.h"
#include "refusallog.h"
#include "servicelog.h"
#include "servicethread.h"

namespace alarms {

class AsciiServer;

/// Makes a session of each connection.
class AsciiAcceptor : public ACE_Acceptor<AsciiSession, ACE_SOCK_Acceptor> {
public:
    using Base = ACE_Acceptor<AsciiSession, ACE_SOCK_Acceptor>;

    explicit AsciiAcceptor(AsciiServer& server) : m_server(server) {}

    AsciiServer& Server() { return m_server; }

    int handle_accept_error() override;
    int handle_timeout(const ACE_Time_Value& now, const void* argument) override;

private:
    AsciiServer& m_server;
};

/// Serves the alarm table to any number of clients on one thread.
///
/// Changes come in through `Push` on the event manager's thread, which only puts them
/// into a queue and wakes the reactor. Everything else happens on the server's thread,
/// which waits for no client.
///
/// Thread safety: `Push` may be called by any thread; `Listen`, `Serve` and `Stop`
/// belong to the service; the rest is for the sessions, on the server's thread.
class AsciiServer : private ACE_Event_Handler {
public:
    struct Settings {
        int port = 0;             ///< 0: any free one.
        int maxClients = 0;       ///< At the same time.
        std::size_t backlog = 0;  ///< Bytes of changes that may wait for one client.
    };

    AsciiServer(const Settings& settings, ServiceLog& log);
    ~AsciiServer() override;

    /// Opens the port; connections wait until `Serve`.
    /// @return false (and a log record) when it cannot be opened
    /// @throws NS_BUNDLEMGR1::InterfaceNotExistException when there is no alarm table
    bool Listen();

    /// Starts the thread.
    void Serve();

    /// Ends the thread and closes all connections; may be called repeatedly.
    void Stop();

    /// Hands a change over, to be sent to the subscribers.
    void Push(const AlarmEvent& event);

    /// @return the port, once `Listen` has succeeded
    int Port() const { return m_port; }

    /// @name For the sessions
    /// @{
    bool Admits(const std::string& host, const std::string& client);
    bool IsFull(const std::string& host, const std::string& client);
    void Enter(AsciiSession* session, const std::string& client);
    void Leave(AsciiSession* session, const std::string& client);
    void ReportCutOff(const std::string& client);
    std::size_t Backlog() const { return m_settings.backlog; }

    /// @param word     first word of the text
    /// @param text     receives the table as lines of text
    /// @param sequence receives the number of the last change in it
    /// @return false when there is no alarm table
    bool Table(const char* word, std::string& text, std::uint64_t& sequence);
    /// @}

    /// For the acceptor: what kept it from taking a connection.
    void ReportAcceptError(const char* reason);

private:
    int handle_exception(ACE_HANDLE handle) override;
    void Deliver(const AlarmEvent& event);
    void Close(AsciiSession* session);

    const Settings m_settings;
    ServiceLog& m_log;
    const AccessList m_access;
    RefusalLog m_refusals;
    NS_BUNDLEMGR1::ServiceInterfaceProxy<AlarmTable> m_alarms{ALARM_SERVICE};
    int m_port = 0;

    std::mutex m_queueMutex;  // guards the two below
    std::vector<AlarmEvent> m_queue;
    bool m_woken = false;  // the reactor knows that there is something

    ACE_Reactor m_reactor;
    AsciiAcceptor m_acceptor;
    std::set<AsciiSession*> m_sessions;
    ServiceThread m_thread;
};

}  // namespace alarms
