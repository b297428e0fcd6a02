// What a piece of code prints on standard output, byte for byte.
#pragma once

#include <string>

#include <gtest/gtest.h>

namespace test {

template <class Action>
std::string StdoutOf(Action action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

}  // namespace test
