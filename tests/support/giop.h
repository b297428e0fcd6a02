// A client that speaks GIOP by hand: what an ORB sends is for the test to say.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include <poll.h>
#include <sys/socket.h>

#include <omniORB4/CORBA.h>

#include "support/lineclient.h"
#include "support/wait.h"

namespace test {

/// Where an object is served.
struct GiopTarget {
    explicit GiopTarget(CORBA::Object_ptr object) {
        const omniIOR_var ior = object->_PR_getobj()->_getIOR();
        IIOP::ProfileBody profile;
        IIOP::unmarshalProfile(ior->iopProfiles()[0], profile);
        port = profile.address.port;
        key.assign(reinterpret_cast<const char*>(profile.object_key.get_buffer()), profile.object_key.length());
    }

    int port = 0;
    std::string key;
};

/// Numbers of code sets in the registry of the OSF.
constexpr std::uint32_t kUtf8 = 0x05010001;
constexpr std::uint32_t kLatin1 = 0x00010001;
constexpr std::uint32_t kUtf16 = 0x00010109;
constexpr std::uint32_t kNoCodeSet = 0;

/// The bytes of a request as GIOP 1.0, 1.1 or 1.2 puts them, in this machine's byte order.
class GiopRequest {
public:
    /// @param minor   of GIOP 1.<minor>
    /// @param codeSet for the strings, told in a CodeSets context; kNoCodeSet: no such context
    GiopRequest(const std::string& key, const std::string& operation, int minor = 0, std::uint32_t codeSet = kNoCodeSet)
        : m_minor(static_cast<char>(minor)) {
        if (minor < 2) {
            Contexts(codeSet);
            Number(1);         // request id
            m_body += '\x01';  // an answer is expected
            if (minor == 1) m_body.append(3, '\0');
            Octets(key);
            Octets(operation + '\0');
            Octets("");  // principal
        } else {
            Number(1);                               // request id
            m_body.append("\x03\0\0\0\0\0\0\0", 8);  // an answer is expected, the target is a key
            Octets(key);
            Octets(operation + '\0');
            Contexts(codeSet);
            m_body.resize((m_body.size() + 12 + 7) / 8 * 8 - 12);
        }
    }

    /// Appends an argument.
    GiopRequest& Number(std::uint32_t number) {
        m_body.resize((m_body.size() + 3) / 4 * 4);
        m_body.append(reinterpret_cast<const char*>(&number), 4);
        return *this;
    }

    std::string Bytes() const {
        const std::uint32_t size = static_cast<std::uint32_t>(m_body.size());
        return std::string("GIOP\x01", 5) + m_minor + std::string("\x01\x00", 2) +
               std::string(reinterpret_cast<const char*>(&size), 4) + m_body;
    }

private:
    void Octets(const std::string& octets) {
        Number(static_cast<std::uint32_t>(octets.size()));
        m_body += octets;
    }
    void Contexts(std::uint32_t codeSet) {
        if (codeSet == kNoCodeSet) {
            Number(0);
            return;
        }
        Number(1).Number(1);  // one context: CodeSets
        Number(12).Number(1).Number(codeSet).Number(kUtf16);
    }

    const char m_minor;
    std::string m_body;
};

/// A connection on which one request follows the other.
class GiopClient {
public:
    explicit GiopClient(int port, const LineClientSettings& settings = LineClientSettings())
        : m_connection(port, settings) {}

    /// @return "Reply" for a result, the repository id of an exception, "MessageError" or
    ///         "CloseConnection"; "" when the connection ends or nothing comes
    std::string Call(const GiopRequest& request) {
        m_connection.Send(request.Bytes());
        return Receive();
    }

    /// The next message from the other end, as `Call` gives it.
    std::string Receive() {
        const std::string header = Read(12);
        if (header.size() < 12) return "";
        m_message = Read(NumberAt(header, 8));
        switch (header[7]) {
            case 1:
                return ReplyText(header[5]);
            case 5:
                return "CloseConnection";
            case 6:
                return "MessageError";
            default:
                return "message " + std::to_string(header[7]);
        }
    }

    /// Whether the other end closes the connection, and says nothing before.
    bool IsClosed() { return Read(1).empty() && m_ended; }

    /// The last message behind its header.
    const std::string& Message() const { return m_message; }

    bool IsConnected() const { return m_connection.IsOpen(); }

private:
    static std::uint32_t NumberAt(const std::string& bytes, std::size_t at) {
        std::uint32_t number = 0;
        if (at + 4 <= bytes.size()) std::copy_n(bytes.data() + at, 4, reinterpret_cast<char*>(&number));
        return number;
    }

    std::string ReplyText(int minor) const {
        // GIOP 1.2 has the contexts behind the status, and not before it; the agent sends none.
        if (NumberAt(m_message, minor < 2 ? 8 : 4) == 0) return "Reply";
        constexpr std::size_t name = 12;
        const std::size_t length = NumberAt(m_message, name);
        return length == 0 ? "" : m_message.substr(name + 4, length - 1);
    }

    std::string Read(std::size_t size) {
        std::string bytes;
        pollfd waiting{m_connection.Handle(), POLLIN, 0};
        while (bytes.size() < size && poll(&waiting, 1, kPatience) > 0) {
            char part[4096];
            const ssize_t count = recv(m_connection.Handle(), part, std::min(sizeof part, size - bytes.size()), 0);
            m_ended = count <= 0;
            if (m_ended) break;
            bytes.append(part, static_cast<std::size_t>(count));
        }
        return bytes;
    }

    static constexpr int kPatience = static_cast<int>(std::chrono::milliseconds(kDeadline).count());
    LineClient m_connection;
    bool m_ended = false;
    std::string m_message;
};

}  // namespace test
