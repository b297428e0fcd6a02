#include "asciisession.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <ace/INET_Addr.h>
#include <ace/Reactor.h>

#include <bundlemgr/base.h>

#include "asciiserver.h"

namespace alarms {

namespace {

constexpr std::size_t kMaxLine = 256;
constexpr std::size_t kReadSize = 1024;

// How much of a table is made at a time, and how often before it is the others' turn.
constexpr std::size_t kPiece = 16 * 1024;
constexpr int kPiecesATurn = 4;

// What the system keeps for a client, besides our own backlog.
constexpr int kSendBuffer = 64 * 1024;

// When the system gives up a client that takes nothing at all.
constexpr int kSilenceMilliseconds = 60 * 1000;

constexpr char kTooManyClients[] = "ERROR too many clients\n";
constexpr char kUnknownCommand[] = "ERROR unknown command\n";
constexpr char kLineTooLong[] = "ERROR line too long\n";
constexpr char kNoTable[] = "ERROR no alarm table\n";
constexpr char kBye[] = "BYE\n";

constexpr char kList[] = "LIST";
constexpr char kSnapshot[] = "SNAPSHOT";

void SetOption(ACE_SOCK_Stream& peer, int level, int option, int value) {
    peer.set_option(level, option, &value, sizeof value);
}

std::string UpperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

}  // namespace

AsciiSession* AsciiSession::Make(ACE_Reactor* reactor) {
    auto* const session = new (std::nothrow) AsciiSession;
    if (session == nullptr) {
        errno = ENOMEM;
    } else {
        session->reactor(reactor);
    }
    return session;
}

// An exception would leave the reactor in the middle of its work. Without memory for it a
// session is closed.
template <class Action>
int AsciiSession::Contain(Action action) {
    try {
        return action();
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

int AsciiSession::open(void* acceptor) {
    AsciiServer& server = static_cast<AsciiAcceptor*>(static_cast<AsciiAcceptor::Base*>(acceptor))->Server();
    return Contain([&] { return Open(server, acceptor); });
}

int AsciiSession::Open(AsciiServer& server, void* acceptor) {
    ACE_INET_Addr address;
    if (peer().get_remote_addr(address) == -1) return -1;  // gone already
    char host[INET6_ADDRSTRLEN] = "";
    address.get_host_addr(host, sizeof host);
    m_client = std::string(host) + ":" + std::to_string(address.get_port_number());
    if (!server.Admits(host, m_client)) return -1;
    if (server.IsFull(host, m_client)) {
        peer().send(kTooManyClients, sizeof kTooManyClients - 1);
        return -1;
    }
    SetOption(peer(), SOL_SOCKET, SO_SNDBUF, kSendBuffer);
    SetOption(peer(), SOL_SOCKET, SO_KEEPALIVE, 1);  // notices a host that has vanished
    SetOption(peer(), IPPROTO_TCP, TCP_USER_TIMEOUT, kSilenceMilliseconds);
    SetOption(peer(), IPPROTO_TCP, TCP_NODELAY, 1);  // a change goes out as soon as it is known
    if (Base::open(acceptor) == -1) {
        server.ReportAcceptError(std::strerror(errno));
        return -1;
    }
    server.Join(this, m_client);
    m_server = &server;
    return 0;
}

int AsciiSession::handle_close(ACE_HANDLE handle, ACE_Reactor_Mask mask) {
    if (m_server != nullptr) m_server->Leave(this, m_client);
    m_server = nullptr;
    return Base::handle_close(handle, mask);  // deletes this
}

int AsciiSession::handle_input(ACE_HANDLE) {
    return Contain([this] { return Receive(); });
}

int AsciiSession::handle_output(ACE_HANDLE) {
    return Contain([this] { return Proceed(); });
}

int AsciiSession::Receive() {
    char data[kReadSize];
    const ssize_t count = peer().recv(data, sizeof data);
    if (count == -1) return errno == EWOULDBLOCK || errno == EINTR ? 0 : -1;
    if (count == 0) {
        // The client sends no more, but may still be reading what it asked for.
        Leave();
    } else {
        m_input.append(data, static_cast<std::size_t>(count));
    }
    return Proceed();
}

// Executes the commands that are there up to the first that has an answer; if more are
// there, the others have their turn before the next. Reading goes on when all are
// executed and the client has taken the answers.
// -1, which closes the session, when the connection is broken or nothing is left to do.
int AsciiSession::Proceed() {
    std::string line;
    for (bool answered = false; Flush();) {
        if (m_leaving) return IsAllOut() ? -1 : 0;
        if (IsAnswering() || (answered && HasLine())) {
            reactor()->cancel_wakeup(this, READ_MASK);
            // Also when everything is out: being able to write is how the next turn comes.
            if (!AwaitsTable()) reactor()->schedule_wakeup(this, WRITE_MASK);
            return 0;
        }
        if (!TakeLine(line)) {
            reactor()->schedule_wakeup(this, READ_MASK);
            return 0;
        }
        Execute(line);
        answered = IsAnswering();
    }
    return -1;
}

bool AsciiSession::HasLine() const {
    return m_input.find('\n') != std::string::npos;
}

// Lines end in LF or CRLF. One that is too long is answered once, forgotten up to its
// end and taken for an empty one.
bool AsciiSession::TakeLine(std::string& line) {
    const std::string::size_type end = m_input.find('\n');
    if (end == std::string::npos) {
        if (m_input.size() <= kMaxLine) return false;
        m_input.clear();
        if (m_skipping) return false;
        m_skipping = true;
        Answer(kLineTooLong);
        line.clear();
        return true;
    }
    line = m_input.substr(0, end);
    m_input.erase(0, end + 1);
    if (m_skipping) {
        m_skipping = false;
        line.clear();
    } else if (line.size() > kMaxLine) {
        Answer(kLineTooLong);
        line.clear();
    }
    return true;
}

void AsciiSession::Execute(const std::string& line) {
    const std::string command = UpperCase(NS_BUNDLEMGR1::Trim(line));
    if (command.empty()) return;
    if (command == "QUIT") {
        Answer(kBye);
        Leave();
        return;
    }
    if (command == "SUBSCRIBE") {
        AskForTable(kSnapshot);
    } else if (command == "LIST") {
        AskForTable(kList);
    } else {
        Answer(kUnknownCommand);
    }
}

void AsciiSession::AskForTable(const char* word) {
    std::shared_ptr<const AlarmSnapshot> table;
    m_awaited = word;
    if (m_server->Table(table)) BeginTable(table);
}

bool AsciiSession::TakeTable(const std::shared_ptr<const AlarmSnapshot>& table) {
    return Contain([&] {
               BeginTable(table);
               return Proceed();
           }) != -1;
}

void AsciiSession::BeginTable(const std::shared_ptr<const AlarmSnapshot>& table) {
    const char* const word = std::exchange(m_awaited, nullptr);
    if (table == nullptr) {
        Answer(kNoTable);
        return;
    }
    m_table = TableText(word, table);
    m_lastProgress = std::chrono::steady_clock::now();
    if (word != kSnapshot) return;
    m_subscribed = true;
    m_sequence = table->sequence;
}

void AsciiSession::Answer(const std::string& text) {
    m_output += text;
    m_answered = m_output.size();
}

bool AsciiSession::Deliver(std::uint64_t sequence, const std::string& text) {
    return Contain([&] {
               m_sequence = sequence;
               (m_table.IsOver() ? m_output : m_changes) += text;
               // Those of one batch go out together at its end (`handle_output`), unless
               // there are many: only what the client does not take counts as its backlog.
               if (ChangesThatWait() <= m_server->Backlog()) return 0;
               if (!Flush()) return -1;
               if (ChangesThatWait() <= m_server->Backlog()) return 0;
               m_server->ReportCutOff(m_client);
               return -1;
           }) != -1;
}

void AsciiSession::Leave() {
    m_leaving = true;
    m_subscribed = false;
    reactor()->cancel_wakeup(this, READ_MASK);
}

// Whether the client still waits for something of the answer to its last command.
bool AsciiSession::IsAnswering() const {
    return m_answered > 0 || !m_table.IsOver() || AwaitsTable();
}

bool AsciiSession::IsAllOut() const {
    return m_output.empty() && m_table.IsOver();
}

std::size_t AsciiSession::ChangesThatWait() const {
    return m_output.size() - m_answered + m_changes.size();
}

// Makes the next piece of the table when the client has taken the last.
void AsciiSession::Refill() {
    if (m_table.IsOver() || m_output.size() >= kPiece) return;
    m_table.AppendTo(m_output, kPiece);
    m_answered = m_output.size();
    if (!m_table.IsOver()) return;
    m_output += m_changes;
    std::string().swap(m_changes);
}

// False when the connection is broken.
bool AsciiSession::Send() {
    std::size_t sent = 0;
    while (sent < m_output.size()) {
        const ssize_t count = peer().send(m_output.data() + sent, m_output.size() - sent);
        if (count == -1 && errno == EINTR) continue;
        if (count == -1 && errno == EWOULDBLOCK) break;
        if (count <= 0) return false;
        sent += static_cast<std::size_t>(count);
    }
    if (sent > 0) m_lastProgress = std::chrono::steady_clock::now();
    m_output.erase(0, sent);
    m_answered -= std::min(m_answered, sent);
    return true;
}

// Sends what the client takes; of a table not all at once, for the others want to be
// served, too. False when the connection is broken.
bool AsciiSession::Flush() {
    for (int piece = 0; piece < kPiecesATurn; ++piece) {
        Refill();
        if (!Send()) return false;
        if (!m_output.empty() || m_table.IsOver()) break;
    }
    if (IsAllOut()) {
        reactor()->cancel_wakeup(this, WRITE_MASK);
    } else {
        reactor()->schedule_wakeup(this, WRITE_MASK);
    }
    return true;
}

}  // namespace alarms
