// A piece of code in a child process of its own, which it may end.
#pragma once

#include <cstdio>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace test {

/// Runs `action` in a forked child. Expectations that fail there are printed, and make it
/// end with 1.
/// @return its exit status; minus the number of the signal that ended it
template <class Action>
int StatusOfChild(Action action) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        action();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace test
