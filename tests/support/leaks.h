// Memory that somebody else's code loses.
#pragma once

// There where the leak checker is.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

namespace test {

/// What this thread allocates in its life is not counted as leaked. For services that throw
/// while the configurator processes their directive: ACE's parser holds its nodes by plain
/// pointers and forgets them when an exception passes through.
class LeaksAllowed {
public:
    LeaksAllowed() {
        if (__lsan_disable != nullptr) __lsan_disable();
    }
    ~LeaksAllowed() {
        if (__lsan_enable != nullptr) __lsan_enable();
    }
    LeaksAllowed(const LeaksAllowed&) = delete;
    LeaksAllowed& operator=(const LeaksAllowed&) = delete;
};

}  // namespace test
