// A TCP client on loopback that speaks in lines.
#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "support/wait.h"

namespace test {

struct LineClientSettings {
    std::string from = "127.0.0.1";  ///< Its own address: loopback has 127.0.0.0/8.
    int receiveBuffer = 0;           ///< Bytes; 0: the system's choice.
    int connectSeconds = 0;          ///< How long connecting may take; 0: the system's choice.
};

class LineClient {
public:
    using Settings = LineClientSettings;

    explicit LineClient(int port, const Settings& settings = Settings())
        : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        if (settings.receiveBuffer > 0) {
            setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &settings.receiveBuffer, sizeof settings.receiveBuffer);
        }
        if (settings.connectSeconds > 0) {
            const timeval patience{settings.connectSeconds, 0};
            setsockopt(m_socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        }
        const sockaddr_in own = Address(settings.from, 0);
        const sockaddr_in server = Address("127.0.0.1", port);
        m_open = bind(m_socket, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 &&
                 connect(m_socket, reinterpret_cast<const sockaddr*>(&server), sizeof server) == 0;
    }
    ~LineClient() { close(m_socket); }
    LineClient(const LineClient&) = delete;
    LineClient& operator=(const LineClient&) = delete;

    void Send(const std::string& text) const { send(m_socket, text.data(), text.size(), MSG_NOSIGNAL); }

    /// Ends what this side sends.
    void HalfClose() const { shutdown(m_socket, SHUT_WR); }

    /// Receives what is there, waiting so long for something to come.
    /// @return false when the connection has ended
    bool Receive(std::chrono::milliseconds patience) {
        if (!m_open) return false;
        pollfd waiting{m_socket, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(std::max<long long>(patience.count(), 0))) <= 0) return true;
        char data[65536];
        const ssize_t count = recv(m_socket, data, sizeof data, 0);
        if (count > 0) m_received.append(data, static_cast<std::size_t>(count));
        m_open = count > 0 || (count == -1 && errno == EINTR);
        return m_open;
    }

    /// Takes the next line off, with its line end; "" when the connection ends or the
    /// deadline passes before there is one.
    std::string ReadLine(std::chrono::milliseconds deadline = kDeadline) {
        const auto end = std::chrono::steady_clock::now() + deadline;
        std::string line;
        while (!TakeLine(line)) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            if (left.count() <= 0 || !Receive(left)) break;
        }
        if (line.empty()) TakeLine(line);
        return line;
    }

    /// Takes lines off up to and including `last`.
    std::string ReadThrough(const std::string& last) {
        std::string text;
        for (std::string line = ReadLine(); !line.empty(); line = ReadLine()) {
            text += line;
            if (line == last) break;
        }
        return text;
    }

    /// Receives until the connection ends, or the deadline passes.
    /// @return everything that was not taken off as lines
    std::string ReadToEnd(std::chrono::milliseconds deadline = kDeadline) {
        const auto end = std::chrono::steady_clock::now() + deadline;
        while (Receive(std::chrono::milliseconds(100)) && std::chrono::steady_clock::now() < end) {
        }
        return std::exchange(m_received, std::string()).substr(std::exchange(m_taken, 0));
    }

    /// Takes a line off if there is a whole one.
    bool TakeLine(std::string& line) {
        const std::string::size_type end = m_received.find('\n', m_taken);
        if (end == std::string::npos) {
            m_received.erase(0, m_taken);
            m_taken = 0;
            return false;
        }
        line = m_received.substr(m_taken, end + 1 - m_taken);
        m_taken = end + 1;
        return true;
    }

    bool IsOpen() const { return m_open; }
    int Handle() const { return m_socket; }

    /// @return the port of this side
    int Port() const {
        sockaddr_in own{};
        socklen_t size = sizeof own;
        getsockname(m_socket, reinterpret_cast<sockaddr*>(&own), &size);
        return ntohs(own.sin_port);
    }

private:
    static sockaddr_in Address(const std::string& host, int port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        inet_pton(AF_INET, host.c_str(), &address.sin_addr);
        return address;
    }

    const int m_socket;
    bool m_open = false;
    std::string m_received;
    std::string::size_type m_taken = 0;  // bytes at its front that were taken off as lines
};

}  // namespace test
