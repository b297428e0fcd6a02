// omniNames and omniEvents as child processes on free ports of 127.0.0.1.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>

#include "support/childprocess.h"
#include "support/tempdir.h"
#include "support/wait.h"

namespace test {

/// A server that can be killed and started again where it was. Beginning it anew on a
/// port that another test has just taken is tried with another port.
class CorbaServer {
public:
    /// Makes the command line from the port and a directory for its data.
    using MakeCommand = std::function<ChildProcess::Command(const std::string& port, const std::string& data)>;

    /// @param readyFile file in the data directory, and
    /// @param readyText what stands in it once the server serves
    CorbaServer(MakeCommand makeCommand, std::string readyFile, std::string readyText)
        : m_makeCommand(std::move(makeCommand)), m_readyFile(std::move(readyFile)), m_readyText(std::move(readyText)) {
        std::random_device random;
        for (int tries = 0; tries < 50; ++tries) {
            // Below the range from which the system takes the ports of clients: nobody
            // is given this one by chance while the server is down.
            m_port = std::to_string(std::uniform_int_distribution<int>(15000, 30000)(random));
            if (TryStart()) return;
        }
        throw std::runtime_error("cannot start " + Command().words[0]);
    }

    const std::string& Port() const { return m_port; }

    void Kill() {
        m_process->Signal(SIGKILL);
        m_process->Wait();
    }

    /// Freezes it: it accepts connections, but answers no more.
    void Freeze() { m_process->Signal(SIGSTOP); }

    /// After `Freeze`: it goes on, with what it was sent in the meantime.
    void Thaw() { m_process->Signal(SIGCONT); }

    /// After `Kill`, on the same port with the data that it had.
    bool StartAgain() {
        return WaitFor([this] { return TryStart(); });
    }

    /// After `Kill`, on the same port without any data.
    bool StartEmpty() {
        ForgetData();
        return StartAgain();
    }

private:
    ChildProcess::Command Command() const {
        ChildProcess::Command command = m_makeCommand(m_port, m_data.Path());
        command.set.emplace_back("OMNIORB_USEHOSTNAME", "127.0.0.1");  // binds to it, too
        command.out = command.err = m_data / "output";
        return command;
    }

    bool TryStart() {
        std::filesystem::remove(m_data / m_readyFile);  // what the last one has written there
        m_process = std::make_unique<ChildProcess>(Command());
        const auto ready = [this] { return ReadFile(m_data / m_readyFile).find(m_readyText) != std::string::npos; };
        if (WaitFor([&] { return m_process->HasEnded() || ready(); }) && !m_process->HasEnded()) return true;
        if (!m_process->HasEnded()) Kill();
        return false;
    }

    void ForgetData() const {
        for (const auto& entry : std::filesystem::directory_iterator(m_data.Path())) {
            std::filesystem::remove_all(entry.path());
        }
    }

    const MakeCommand m_makeCommand;
    const std::string m_readyFile;
    const std::string m_readyText;
    TempDir m_data;
    std::string m_port;
    std::unique_ptr<ChildProcess> m_process;
};

/// A naming service. ZO_OMNINAMES is defined by the build.
class NamingServer : public CorbaServer {
public:
    NamingServer()
        : CorbaServer(
              [](const std::string& port, const std::string& data) {
                  ChildProcess::Command command;
                  command.words = {ZO_OMNINAMES,  "-start",       port,
                                   "-always",     "-datadir",     data,
                                   "-nohostname", "-ORBendPoint", "giop:tcp:127.0.0.1:" + port};
                  return command;
              },
              "output", "Checkpointing completed.") {}
};

/// An event service. ZO_OMNIEVENTS is defined by the build.
class EventServer : public CorbaServer {
public:
    /// @param codeSet its native code set
    explicit EventServer(const std::string& codeSet = "UTF-8")
        : CorbaServer(
              [codeSet](const std::string& port, const std::string& data) {
                  ChildProcess::Command command;
                  // It tells the naming service of itself, of which it knows nothing here.
                  command.words = {ZO_OMNIEVENTS,
                                   "-f",
                                   "-p",
                                   port,
                                   "-l",
                                   data,
                                   "-t",
                                   data + "/trace",
                                   "-ORBnativeCharCodeSet",
                                   codeSet,
                                   "-ORBInitRef",
                                   "NameService=corbaloc::127.0.0.1:1/None"};
                  return command;
              },
              "trace", "Checkpointing completed.") {}
};

}  // namespace test
