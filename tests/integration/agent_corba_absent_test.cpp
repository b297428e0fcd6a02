// In the place of the tests of the agent's CORBA side where it is not built.
#include <gtest/gtest.h>

TEST(AgentCorbaTest, NeedsOmniOrb) {
    GTEST_SKIP() << "built without omniORB and omniEvents, see scripts/install-deps.sh corba";
}
