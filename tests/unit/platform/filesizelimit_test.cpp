#include "src/platform/filesizelimit.h"

#include <sys/resource.h>

#include <atomic>
#include <ctime>

#include <gtest/gtest.h>

#include "support/replacedfunction.h"

namespace {

std::atomic<long> g_second{0};  // of the clock; 0: the real one
std::atomic<rlim_t> g_limit{RLIM_INFINITY};
std::atomic<bool> g_fails{false};
std::atomic<int> g_asked{0};

}  // namespace

// This program's own come before the C library's.
extern "C" {

ZO_REPLACES int clock_gettime(clockid_t clock, timespec* now) noexcept {
    if (g_second != 0 && clock == CLOCK_MONOTONIC_COARSE) {
        *now = timespec{g_second, 999999999};
        return 0;
    }
    static const auto next = test::Next<int (*)(clockid_t, timespec*)>("clock_gettime");
    return next(clock, now);
}

ZO_REPLACES int getrlimit(__rlimit_resource_t, rlimit* limit) noexcept {
    ++g_asked;
    *limit = rlimit{g_limit, RLIM_INFINITY};
    return g_fails ? -1 : 0;
}
}

namespace NS_BUNDLEMGR1 {
namespace {

class FileSizeLimitTest : public testing::Test {
protected:
    FileSizeLimitTest() {
        g_second = 100;
        FileSizeLimit::LookAgain();
        g_asked = 0;
    }
    ~FileSizeLimitTest() override {
        g_second = 0;
        g_limit = RLIM_INFINITY;
        g_fails = false;
    }
};

TEST_F(FileSizeLimitTest, TheSystemIsAskedOnceASecond) {
    for (int i = 0; i < 5; ++i) EXPECT_FALSE(FileSizeLimit::IsSet());
    EXPECT_EQ(0, g_asked);
    g_second = 101;
    for (int i = 0; i < 5; ++i) EXPECT_FALSE(FileSizeLimit::IsSet());
    EXPECT_EQ(1, g_asked);
}

TEST_F(FileSizeLimitTest, AChangeIsNoticedInTheNextSecond) {
    g_limit = 5000;
    EXPECT_FALSE(FileSizeLimit::IsSet());
    g_second = 101;
    EXPECT_TRUE(FileSizeLimit::IsSet());
    g_limit = RLIM_INFINITY;
    EXPECT_TRUE(FileSizeLimit::IsSet());
    g_second = 102;
    EXPECT_FALSE(FileSizeLimit::IsSet());
}

TEST_F(FileSizeLimitTest, AnotherLookNoticesItAtOnce) {
    g_limit = 0;
    EXPECT_TRUE(FileSizeLimit::LookAgain());
    EXPECT_TRUE(FileSizeLimit::IsSet());
    EXPECT_EQ(1, g_asked);
}

TEST_F(FileSizeLimitTest, ASystemThatDoesNotTellHasNone) {
    g_limit = 5000;
    g_fails = true;
    EXPECT_FALSE(FileSizeLimit::LookAgain());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
