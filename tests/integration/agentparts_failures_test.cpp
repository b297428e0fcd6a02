// Parts of the agent when the system refuses them memory.
//
// This program's own operator new comes before that of the libraries. It passes every request
// on until a test tells it to fail.
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "refusallog.h"
#include "support/replacednew.h"

namespace {

thread_local bool t_noMemory = false;

}  // namespace

bool test::RefusesMemory() noexcept {
    return t_noMemory;
}

namespace {

TEST(AgentRefusalLogFailures, WithoutMemoryARefusalIsNotTold) {
    alarms::RefusalLog refusals;
    const std::string address = "192.0.2.1";
    t_noMemory = true;
    const bool told = refusals.ShouldTell(address, {});
    t_noMemory = false;
    EXPECT_FALSE(told);
    EXPECT_TRUE(refusals.ShouldTell(address, {}));
}

}  // namespace
