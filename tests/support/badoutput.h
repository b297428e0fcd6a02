// A standard output that takes nothing.
#pragma once

#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace test {

/// Makes standard output a pipe without a reader, where each write raises SIGPIPE, which
/// ends the process. For good, so for a child process.
inline void BreakStdout() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    close(ends[0]);
    if (dup2(ends[1], STDOUT_FILENO) == -1) throw std::runtime_error("dup2 failed");
    close(ends[1]);
    std::signal(SIGPIPE, SIG_DFL);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
}

/// Makes standard output a file that takes `bytes`; the next one raises SIGXFSZ.
inline void LimitStdout(const std::string& file, rlim_t bytes) {
    const int handle = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (handle == -1 || dup2(handle, STDOUT_FILENO) == -1) throw std::runtime_error("cannot open " + file);
    close(handle);
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes;
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) throw std::runtime_error("setrlimit failed");
    std::signal(SIGXFSZ, SIG_DFL);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
}

}  // namespace test
