// One client of the text server.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <ace/SOCK_Stream.h>
#include <ace/Svc_Handler.h>

#include "alarmtext.h"

namespace alarms {

class AsciiServer;

/// A connection: takes commands, one a line, and sends their answers and, after
/// SUBSCRIBE, every change of the alarm table.
///
/// It never waits for its client. What the client does not take at once is kept and
/// sent when it can be. Three bounds keep that short: no further command is read before
/// the answer to the last one is out, the text of a table is made as the client takes it,
/// and a client that lets too many changes wait is cut off.
///
/// Nor do the other clients wait for it, however many commands it sends at once: it has
/// one answered, then it is their turn.
///
/// Created by the acceptor, deletes itself when it is closed (`handle_close`). All of it
/// runs on the server's thread.
class AsciiSession : public ACE_Svc_Handler<ACE_SOCK_Stream, ACE_NULL_SYNCH> {
    using Base = ACE_Svc_Handler<ACE_SOCK_Stream, ACE_NULL_SYNCH>;

public:
    /// Without a reactor, which the acceptor sets. By default it would be the process's,
    /// which is made for that and breaks the process when its descriptors are above 1023.
    AsciiSession() : Base(nullptr, nullptr, nullptr) {}

    /// @return a session without a connection; null, and `errno` set, without memory
    static AsciiSession* Make(ACE_Reactor* reactor);

    /// Called by the acceptor when the connection is there.
    /// @return -1 when the client is refused, which closes the connection
    int open(void* acceptor) override;

    int handle_input(ACE_HANDLE handle) override;
    int handle_output(ACE_HANDLE handle) override;
    int handle_close(ACE_HANDLE handle, ACE_Reactor_Mask mask) override;

    /// Whether its client has asked for the table and is still to get one: then there was
    /// no room for it (`AsciiServer::Table`).
    bool AwaitsTable() const { return m_awaited != nullptr; }

    /// Ends that.
    /// @param table null: there is none any more
    /// @return false when the session is to be closed
    bool TakeTable(const std::shared_ptr<const AlarmSnapshot>& table);

    /// @return the table that the client is being sent; null for none
    const AlarmSnapshot* Table() const { return m_table.Table(); }

    /// @return when the client has taken something for the last time, or was to begin
    std::chrono::steady_clock::time_point LastProgress() const { return m_lastProgress; }

    /// @return "192.0.2.7:40123", for the log
    const std::string& Client() const { return m_client; }

    /// Whether a change of that number is to be sent: not before SUBSCRIBE, and not
    /// when the table that was the answer to it contains the change.
    bool Wants(std::uint64_t sequence) const { return m_subscribed && sequence > m_sequence; }

    /// Takes a change to be sent. `handle_output`, after one or more of them, sends it.
    /// @return false when the session is to be closed
    bool Deliver(std::uint64_t sequence, const std::string& text);

private:
    template <class Action>
    int Contain(Action action);
    int Open(AsciiServer& server, void* acceptor);
    int Receive();
    int Proceed();
    bool HasLine() const;
    bool TakeLine(std::string& line);
    void Execute(const std::string& line);
    void AskForTable(const char* word);
    void BeginTable(const std::shared_ptr<const AlarmSnapshot>& table);
    void Answer(const std::string& text);
    void Leave();
    bool IsAnswering() const;
    bool IsAllOut() const;
    std::size_t ChangesThatWait() const;
    void Refill();
    bool Send();
    bool Flush();

    AsciiServer* m_server = nullptr;  // set once admitted
    std::string m_client;
    std::string m_input;
    bool m_skipping = false;          // the rest of a line that is too long
    const char* m_awaited = nullptr;  // first word of the table that the client will get when there is room
    std::string m_output;             // what the client has not taken yet
    std::size_t m_answered = 0;       // bytes of it up to the end of the last answer
    TableText m_table;                // comes behind it
    std::string m_changes;            // and these come behind the table
    std::chrono::steady_clock::time_point m_lastProgress;
    bool m_subscribed = false;
    std::uint64_t m_sequence = 0;  // of the last change that the client has been told of
    bool m_leaving = false;        // closes when everything is out
};

}  // namespace alarms
