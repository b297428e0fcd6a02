// What the tests themselves leave behind.
#include "support/tempdir.h"

#include <csignal>
#include <filesystem>

#include <gtest/gtest.h>

#include "support/environment.h"

namespace {

using test::ScopedEnv;
using test::TempDir;

TEST(TempDir, IsRemovedWithEverythingInIt) {
    std::string path;
    {
        const TempDir dir;
        path = dir.Write("a/b/c", "text");
        EXPECT_EQ(test::ReadFile(path), "text");
        path = dir.Path();
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(TempDir, NothingIsLeftOfAChildThatIsKilledInTheMiddleOfItsTest) {
    // Such a child begins the test anew, and makes directories of its own.
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const TempDir base;
    const ScopedEnv place("TMPDIR", base.Path());
    const ScopedEnv asIfBegunHere("ZO_TEST_OUTER");
    {
        const TempDir dir;
        const TempDir other;
        EXPECT_EXIT(raise(SIGKILL), testing::KilledBySignal(SIGKILL), "");
        EXPECT_TRUE(std::filesystem::exists(dir.Path()));
        EXPECT_TRUE(std::filesystem::is_empty(other.Path()));
    }
    EXPECT_TRUE(std::filesystem::is_empty(base.Path()));
}

}  // namespace
