#include "src/platform/serverpath.h"

#include <gtest/gtest.h>

#include "support/environment.h"

namespace {

std::string ServerPath(std::string out) {
    ns_korusdk_wrap::VexGetServerPath(out, "", "");
    return out;
}

TEST(ServerPath, ComesFromTheEnvironmentAsItStands) {
    const test::ScopedEnv path("KORU_SERVER_PATH", " /opt/koru/ \n");
    EXPECT_EQ(" /opt/koru/ \n", ServerPath(""));
}

TEST(ServerPath, ReplacesWhatTheStringHeld) {
    const test::ScopedEnv path("KORU_SERVER_PATH", "/opt/koru");
    EXPECT_EQ("/opt/koru", ServerPath("something longer than the path"));
}

TEST(ServerPath, IsEmptyWhereTheVariableIsEmpty) {
    const test::ScopedEnv path("KORU_SERVER_PATH", "");
    EXPECT_EQ("", ServerPath("before"));
}

TEST(ServerPath, IsEmptyWhereTheVariableIsUnset) {
    const test::ScopedEnv path("KORU_SERVER_PATH");
    EXPECT_EQ("", ServerPath("before"));
}

TEST(ServerPath, IsReadAfreshByEachCall) {
    {
        const test::ScopedEnv path("KORU_SERVER_PATH", "/first");
        EXPECT_EQ("/first", ServerPath(""));
    }
    const test::ScopedEnv path("KORU_SERVER_PATH", "/second");
    EXPECT_EQ("/second", ServerPath(""));
}

}  // namespace
