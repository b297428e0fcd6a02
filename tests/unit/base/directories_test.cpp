#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <bundlemgr/base.h>

#include "support/environment.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::ScopedEnv;

constexpr const char* kRoot = "KORU_SERVER_PATH";

// Asked before anything in this file is initialised, perhaps before anything in the
// library is.
std::string CfgDirSeenByStaticConstructor() {
    const ScopedEnv root(kRoot, "/opt/x");
    const std::string before = GetCfgDirPath();
    SetCfgDirPath("early");
    const std::string after = GetCfgDirPath();
    SetCfgDirPath("conf");
    return before + " " + after;
}
const std::string g_seenByStaticConstructor = CfgDirSeenByStaticConstructor();

// The sub-directory belongs to the process.
class DirectoriesTest : public testing::Test {
protected:
    ~DirectoriesTest() override { SetCfgDirPath("conf"); }
};

std::string PathOf(const std::string& value) {
    const ScopedEnv variable("ZO_TEST_PATH", value);
    return GetPathBySysEnvironment("ZO_TEST_PATH");
}

TEST_F(DirectoriesTest, PathBySysEnvironmentLosesOneSeparator) {
    EXPECT_EQ("/opt/x", PathOf("/opt/x"));
    EXPECT_EQ("/opt/x", PathOf("/opt/x/"));
    EXPECT_EQ("c:\\opt", PathOf("c:\\opt\\"));
    EXPECT_EQ("a/", PathOf("a//"));
    EXPECT_EQ("a\\", PathOf("a\\/"));
    EXPECT_EQ("", PathOf("/"));
    EXPECT_EQ("", PathOf("\\"));
    EXPECT_EQ(" /a/ ", PathOf(" /a/ "));
}

TEST_F(DirectoriesTest, PathBySysEnvironmentIsEmptyWhereThereIsNone) {
    EXPECT_EQ("", PathOf(""));
    const ScopedEnv unset("ZO_TEST_PATH");
    EXPECT_EQ("", GetPathBySysEnvironment("ZO_TEST_PATH"));
    EXPECT_EQ("", GetPathBySysEnvironment(""));
    EXPECT_EQ("", GetPathBySysEnvironment("a=b"));
}

std::string RootOf(const std::string& serverPath) {
    const ScopedEnv root(kRoot, serverPath);
    return GetKORURootPath();
}

TEST_F(DirectoriesTest, RootPathEndsInASeparator) {
    EXPECT_EQ("/opt/x/", RootOf("/opt/x"));
    EXPECT_EQ("/opt/x/", RootOf("/opt/x/"));
    EXPECT_EQ("/opt/x//", RootOf("/opt/x//"));
    EXPECT_EQ("c:\\x\\", RootOf("c:\\x\\"));
    EXPECT_EQ("/", RootOf("/"));
}

TEST_F(DirectoriesTest, RootPathIsTrimmed) {
    EXPECT_EQ("/opt/x/", RootOf(" /opt/x \n"));
    EXPECT_EQ("/opt/x y/", RootOf("\t\r\n/opt/x y/\t"));
    EXPECT_EQ("", RootOf(" \t\r\n"));
}

TEST_F(DirectoriesTest, EnvironmentStandsOnTheRootLessOneSeparator) {
    const auto environmentOf = [](const std::string& serverPath) {
        const ScopedEnv root(kRoot, serverPath);
        return GetKORUEnvironment();
    };
    EXPECT_EQ("/opt/x/nbi", environmentOf("/opt/x"));
    EXPECT_EQ("/opt/x/nbi", environmentOf("/opt/x/"));
    EXPECT_EQ("/opt/x//nbi", environmentOf("/opt/x//"));
    EXPECT_EQ("c:\\x/nbi", environmentOf("c:\\x\\"));
    EXPECT_EQ("/nbi", environmentOf("/"));
}

TEST_F(DirectoriesTest, DirectoriesBelowTheRootKeepTheirDots) {
    const ScopedEnv root(kRoot, "/opt/x/");
    EXPECT_EQ("/opt/x/nbi/../nbi", GetNBIBaseDirPath());
    EXPECT_EQ("/opt/x/nbi/../etc/oss_cfg/nbi/conf/", GetCfgDirPath());
    EXPECT_EQ("/opt/x/nbi/../nbi/../var/oss_tmp/nbi/corba/cdrfiles", GetCDRFilesDir());
}

void ExpectNoRoot() {
    EXPECT_EQ("", GetKORURootPath());
    EXPECT_EQ("", GetKORUEnvironment());
    EXPECT_EQ("", GetNBIBaseDirPath());
    EXPECT_EQ("", GetCfgDirPath());
    EXPECT_EQ("/../var/oss_tmp/nbi/corba/cdrfiles", GetCDRFilesDir());
}

TEST_F(DirectoriesTest, WithoutARootOnlyTheCdrDirectoryHasAName) {
    {
        const ScopedEnv unset(kRoot);
        ExpectNoRoot();
    }
    {
        const ScopedEnv empty(kRoot, "");
        ExpectNoRoot();
    }
    const ScopedEnv blank(kRoot, " \n");
    ExpectNoRoot();
}

TEST_F(DirectoriesTest, TheEnvironmentIsReadByEachCall) {
    {
        const ScopedEnv root(kRoot, "/first");
        EXPECT_EQ("/first/", GetKORURootPath());
    }
    const ScopedEnv root(kRoot, "/second");
    EXPECT_EQ("/second/", GetKORURootPath());
}

TEST_F(DirectoriesTest, SetCfgDirPathReplacesTheSubDirectory) {
    const ScopedEnv root(kRoot, "/opt/x");
    EXPECT_EQ(0, SetCfgDirPath("conf2"));
    EXPECT_EQ("/opt/x/nbi/../etc/oss_cfg/nbi/conf2/", GetCfgDirPath());
    EXPECT_EQ(0, SetCfgDirPath(""));
    EXPECT_EQ("/opt/x/nbi/../etc/oss_cfg/nbi//", GetCfgDirPath());
    EXPECT_EQ(0, SetCfgDirPath("a/b/"));
    EXPECT_EQ("/opt/x/nbi/../etc/oss_cfg/nbi/a/b//", GetCfgDirPath());
}

TEST_F(DirectoriesTest, SubDirectoryServesStaticConstructors) {
    EXPECT_EQ("/opt/x/nbi/../etc/oss_cfg/nbi/conf/ /opt/x/nbi/../etc/oss_cfg/nbi/early/", g_seenByStaticConstructor);
}

TEST_F(DirectoriesTest, ReadersSeeWholeSubDirectories) {
    const ScopedEnv root(kRoot, "/r");
    // Both too long for a string's own buffer, so a torn one shows.
    const std::string first(40, 'a');
    const std::string second(400, 'b');
    const std::string expectedFirst = "/r/nbi/../etc/oss_cfg/nbi/" + first + "/";
    const std::string expectedSecond = "/r/nbi/../etc/oss_cfg/nbi/" + second + "/";
    SetCfgDirPath(first);

    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::vector<std::thread> readers;
    readers.reserve(3);
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            do {
                const std::string path = GetCfgDirPath();
                if (path != expectedFirst && path != expectedSecond) ++torn;
            } while (!done);
        });
    }
    for (int i = 0; i < 2000; ++i) SetCfgDirPath(i % 2 == 0 ? second : first);
    done = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(0, torn.load());
}

TEST_F(DirectoriesTest, LogPathJoinsItsPiecesAsTheyStand) {
    const auto logPathOf = [](const std::string& directory) {
        const ScopedEnv variable("_APP_LOG_DIR", directory);
        return GetNBILogPath();
    };
    EXPECT_EQ("/var/log/Develop/nbi/Agent_CORBA", logPathOf("/var/log"));
    EXPECT_EQ("/var/log//Develop/nbi/Agent_CORBA", logPathOf("/var/log/"));
    EXPECT_EQ(" x/Develop/nbi/Agent_CORBA", logPathOf(" x"));
    EXPECT_EQ("/Develop/nbi/Agent_CORBA", logPathOf(""));
    const ScopedEnv unset("_APP_LOG_DIR");
    EXPECT_EQ("/Develop/nbi/Agent_CORBA", GetNBILogPath());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
