#include "platform/umask.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/tempdir.h"
#include "support/wait.h"

namespace {

using NS_BUNDLEMGR1::ScopedUmask;

// Read without being set, which would disturb other threads.
mode_t CurrentUmask() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("Umask:", 0) == 0) return static_cast<mode_t>(std::stoul(line.substr(6), nullptr, 8));
    }
    throw std::runtime_error("no Umask in /proc/self/status");
}

mode_t ModeOfNewFile(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0777);
    if (fd < 0) throw std::runtime_error("cannot create " + path);
    struct stat status {};
    fstat(fd, &status);
    close(fd);
    return status.st_mode & 07777;
}

// The processes of these tests differ in their umask; all start from this one.
class UmaskTest : public testing::Test {
protected:
    UmaskTest() : m_atStart(umask(0022)) {}
    ~UmaskTest() override { umask(m_atStart); }

private:
    const mode_t m_atStart;
};

mode_t MaskSeenByStaticConstructor() {
    const ScopedUmask mask(0051);
    return CurrentUmask();
}
const mode_t g_seenByStaticConstructor = MaskSeenByStaticConstructor();

TEST_F(UmaskTest, HoldsForItsLifetime) {
    const test::TempDir dir;
    {
        const ScopedUmask mask(0037);
        EXPECT_EQ(0037u, CurrentUmask());
        EXPECT_EQ(0740u, ModeOfNewFile(dir / "inside"));
    }
    EXPECT_EQ(0022u, CurrentUmask());
    EXPECT_EQ(0755u, ModeOfNewFile(dir / "after"));
}

TEST_F(UmaskTest, NestsOnOneThread) {
    const ScopedUmask outer(0007);
    {
        const ScopedUmask inner(0037);
        EXPECT_EQ(0037u, CurrentUmask());
    }
    EXPECT_EQ(0007u, CurrentUmask());
}

TEST_F(UmaskTest, RestoresWhenAnExceptionLeavesTheScope) {
    EXPECT_THROW(
        {
            const ScopedUmask mask(0077);
            throw std::runtime_error("");
        },
        std::runtime_error);
    EXPECT_EQ(0022u, CurrentUmask());
}

TEST_F(UmaskTest, ServesStaticConstructors) {
    EXPECT_EQ(0051u, g_seenByStaticConstructor);
}

TEST_F(UmaskTest, SecondThreadWaitsForTheFirst) {
    std::atomic<bool> started{false};
    std::atomic<mode_t> seenBySecond{0};
    std::thread second;
    {
        const ScopedUmask first(0037);
        second = std::thread([&] {
            started = true;
            const ScopedUmask mask(0007);
            seenBySecond = CurrentUmask();
        });
        ASSERT_TRUE(test::WaitFor([&] { return started.load(); }));
        EXPECT_EQ(0037u, CurrentUmask());
        EXPECT_EQ(0u, seenBySecond.load());
    }
    second.join();
    EXPECT_EQ(0007u, seenBySecond.load());
    EXPECT_EQ(0022u, CurrentUmask());
}

TEST_F(UmaskTest, ThreadsNeverRestoreEachOthersMask) {
    constexpr int kRounds = 2000;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (const mode_t mask : {0007u, 0037u, 0077u, 0000u}) {
        threads.emplace_back([mask, &wrong] {
            for (int i = 0; i < kRounds; ++i) {
                const ScopedUmask scoped(mask);
                // Sets what is set already, to learn what it was.
                if (umask(mask) != mask) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, wrong.load());
    EXPECT_EQ(0022u, CurrentUmask());
}

}  // namespace
