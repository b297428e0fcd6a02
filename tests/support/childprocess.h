// A program as a child process, with its output in files.
#pragma once

#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/wait.h"

namespace test {

class ChildProcess {
public:
    struct Command {
        std::vector<std::string> words;                        ///< The program's path and its arguments.
        std::vector<std::pair<std::string, std::string>> set;  ///< Environment variables to set.
        std::vector<std::string> unset;                        ///< And to take away, first.
        std::string out = "/dev/null";                         ///< File for standard output.
        std::string err = "/dev/null";                         ///< File for standard error.
    };

    explicit ChildProcess(const Command& command) {
        // The child holds the writing end until it ends, which the reading end shows.
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) == -1) throw std::runtime_error("pipe2 failed");
        m_alive = ends[0];
        m_pid = fork();
        if (m_pid == 0) {
            fcntl(ends[1], F_SETFD, 0);
            Exec(command);
        }
        close(ends[1]);
        if (m_pid == -1) throw std::runtime_error("fork failed");
    }

    /// Kills it if it still runs.
    ~ChildProcess() {
        if (!m_ended) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
        close(m_alive);
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Pid() const { return m_pid; }

    void Signal(int number) const { kill(m_pid, number); }

    /// Stops it where it is until it gets SIGCONT.
    /// @return whether it stands still
    bool Freeze() const {
        int status = 0;
        Signal(SIGSTOP);
        return waitpid(m_pid, &status, WUNTRACED) == m_pid && WIFSTOPPED(status);
    }

    /// Lets it have no descriptor from this one on.
    /// @return whether that is so
    bool LimitDescriptors(rlim_t most) const {
        rlimit limit{};
        if (prlimit(m_pid, RLIMIT_NOFILE, nullptr, &limit) != 0) return false;
        limit.rlim_cur = most;
        return prlimit(m_pid, RLIMIT_NOFILE, &limit, nullptr) == 0;
    }

    bool HasEnded() {
        if (!m_ended) m_ended = waitpid(m_pid, &m_status, WNOHANG) == m_pid;
        return m_ended;
    }

    /// @return its exit status; minus the number of the signal that ended it; -1000 when
    ///         it does not end before the deadline
    int Wait(std::chrono::milliseconds deadline = kDeadline) {
        pollfd alive{m_alive, POLLIN, 0};
        poll(&alive, 1, static_cast<int>(deadline.count()));
        if (!WaitFor([this] { return HasEnded(); }, std::chrono::seconds(1))) return -1000;
        return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : -WTERMSIG(m_status);
    }

private:
    [[noreturn]] static void Exec(const Command& command) {
        Redirect(command.out, STDOUT_FILENO);
        Redirect(command.err, STDERR_FILENO);
        for (const std::string& name : command.unset) unsetenv(name.c_str());
        for (const auto& variable : command.set) setenv(variable.first.c_str(), variable.second.c_str(), 1);
        std::vector<char*> words;
        for (const std::string& word : command.words) words.push_back(const_cast<char*>(word.c_str()));
        words.push_back(nullptr);
        execv(words[0], words.data());
        _exit(127);
    }

    static void Redirect(const std::string& file, int handle) {
        const int opened = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (opened == -1 || dup2(opened, handle) == -1) _exit(126);
        close(opened);
    }

    pid_t m_pid = -1;
    int m_alive = -1;
    bool m_ended = false;
    int m_status = 0;
};

}  // namespace test
