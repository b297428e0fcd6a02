// One client of the text server.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <ace/SOCK_Stream.h>
#include <ace/Svc_Handler.h>

namespace alarms {

class AsciiServer;

/// A connection: takes commands, one a line, and sends their answers and, after
/// SUBSCRIBE, every change of the alarm table.
///
/// It never waits for its client. What the client does not take at once is kept and
/// sent when it can be. Two bounds keep that short: no further command is read before
/// the answer to the last one is out, and a client that lets too many changes wait is
/// cut off.
///
/// Nor do the other clients wait for it, however many commands it sends at once: it has
/// one answered, then it is their turn.
///
/// Created by the acceptor, deletes itself when it is closed (`handle_close`). All of it
/// runs on the server's thread.
class AsciiSession : public ACE_Svc_Handler<ACE_SOCK_Stream, ACE_NULL_SYNCH> {
public:
    /// Called by the acceptor when the connection is there.
    /// @return -1 when the client is refused, which closes the connection
    int open(void* acceptor) override;

    int handle_input(ACE_HANDLE handle) override;
    int handle_output(ACE_HANDLE handle) override;
    int handle_close(ACE_HANDLE handle, ACE_Reactor_Mask mask) override;

    /// Whether a change of that number is to be sent: not before SUBSCRIBE, and not
    /// when the table that was the answer to it contains the change.
    bool Wants(std::uint64_t sequence) const { return m_subscribed && sequence > m_sequence; }

    /// Takes a change to be sent. `handle_output`, after one or more of them, sends it.
    /// @return false when the session is to be closed
    bool Deliver(std::uint64_t sequence, const std::string& text);

private:
    using Base = ACE_Svc_Handler<ACE_SOCK_Stream, ACE_NULL_SYNCH>;

    int Proceed();
    bool HasLine() const;
    bool TakeLine(std::string& line);
    void Execute(const std::string& line);
    void Answer(const std::string& text);
    void Leave();
    bool Flush();

    AsciiServer* m_server = nullptr;  // set once admitted
    std::string m_client;             // "192.0.2.7:40123", for the log
    std::string m_input;
    bool m_skipping = false;     // the rest of a line that is too long
    std::string m_output;        // what the client has not taken yet
    std::size_t m_answered = 0;  // bytes of it up to the end of the last answer
    bool m_subscribed = false;
    std::uint64_t m_sequence = 0;  // of the last change that the client has been told of
    bool m_leaving = false;        // closes when everything is out
};

}  // namespace alarms
