// What goes on in a child that was forked without becoming another program.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include <gtest/gtest.h>

namespace test {

/// Whether a child may allocate memory although other threads of its parent did at the time.
/// The C library's allocator sees to that. AddressSanitizer's does not: the child waits for
/// locks of threads that it has not.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kForkedChildMayAllocate = false;
#else
constexpr bool kForkedChildMayAllocate = true;
#endif

/// Runs `action` in a forked child, which it may end. Expectations that fail there are
/// printed, and make it end with 1; one that hangs is ended.
/// @return its exit status; minus the number of the signal that ended it
template <class Action>
int StatusOfChild(Action action) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        action();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// Runs an action in a forked child.
/// @return 0 when it was true, another number when it was not, or did not end
template <class Action>
int InForkedChild(Action action) {
    return StatusOfChild([&action] { EXPECT_TRUE(action()); });
}

}  // namespace test
