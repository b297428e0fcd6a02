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

#include <bundlemgr/bundle.h>
#include <bundlemgr/kit.h>

#include "accesslist.h"
#include "alarmevent.h"
#include "alarmtable.h"
#include "asciisession.h"
#include "refusallog.h"

namespace alarms {

class AsciiServer;

/// Makes a session of each connection.
class AsciiAcceptor : public ACE_Acceptor<AsciiSession, ACE_SOCK_Acceptor> {
public:
    using Base = ACE_Acceptor<AsciiSession, ACE_SOCK_Acceptor>;

    explicit AsciiAcceptor(AsciiServer& server) : m_server(server) {}

    AsciiServer& Server() { return m_server; }

    int handle_input(ACE_HANDLE handle) override;
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
        int maxClients = 0;       ///< At the same time; fewer where the process may not open so many files.
        std::size_t backlog = 0;  ///< Bytes of changes that may wait for one client.
    };

    AsciiServer(const Settings& settings, const zo::Log& log);
    ~AsciiServer() override;

    /// Opens the port; connections wait until `Serve`.
    /// @return false (and a log record) when it cannot be opened
    /// @throws NS_BUNDLEMGR1::InterfaceNotExistException when there is no alarm table
    bool Listen();

    /// Starts the thread.
    void Serve();

    /// Ends the thread and closes all connections; may be called repeatedly.
    void Stop();

    /// Hands a change over, to be sent to the subscribers. Without memory for it all
    /// connections are closed, for nobody would notice what is missing.
    void Push(const AlarmEvent& event);

    /// @return the port, once `Listen` has succeeded
    int Port() const { return m_port; }

    /// @name For the sessions
    /// @{
    bool Admits(const std::string& host, const std::string& client);
    bool IsFull(const std::string& host, const std::string& client);
    void Join(AsciiSession* session, const std::string& client);
    void Leave(AsciiSession* session, const std::string& client);
    void ReportCutOff(const std::string& client) const;
    std::size_t Backlog() const { return m_settings.backlog; }

    /// Tables take memory for as long as somebody is being sent them. Clients that ask
    /// while the alarms do not change share one; there is room for so many others.
    ///
    /// @param table receives the table; null when `AlarmSvc` is gone
    /// @return false when there is no room: the session gets a table when there is, see
    ///         `AsciiSession::TakeTable`
    bool Table(std::shared_ptr<const AlarmSnapshot>& table);
    /// @}

    /// For the acceptor: what kept it from taking a connection.
    void ReportAcceptError(const char* reason);

private:
    int handle_exception(ACE_HANDLE handle) override;
    int handle_timeout(const ACE_Time_Value& now, const void* argument) override;
    void FitIntoDescriptors();
    void DeliverQueue();
    void Deliver(const AlarmEvent& event);
    std::shared_ptr<const AlarmSnapshot> Snapshot();
    std::size_t OtherTablesInUse(const AlarmSnapshot* table) const;
    void CutOffIdle();
    void ServeThoseWhoWait();
    void Close(AsciiSession* session);
    void CloseAll();

    const Settings m_settings;
    const zo::Log& m_log;
    const AccessList m_access;
    std::size_t m_maxClients;  // fewer than asked for where descriptors are few
    RefusalLog m_refusals;
    NS_BUNDLEMGR1::ServiceInterfaceProxy<AlarmTable> m_alarms{ALARM_SERVICE};
    int m_port = 0;

    std::mutex m_queueMutex;  // guards the three below
    std::vector<AlarmEvent> m_queue;
    bool m_lost = false;   // there was no memory for a change
    bool m_woken = false;  // the reactor knows that there is something

    ACE_Reactor m_reactor;
    AsciiAcceptor m_acceptor;
    bool m_acceptFails = false;  // since a client was accepted for the last time
    long m_waitTimer = -1;       // while clients wait for a table; -1: none does
    std::set<AsciiSession*> m_sessions;
    zo::ServiceThread m_thread;
};

}  // namespace alarms
