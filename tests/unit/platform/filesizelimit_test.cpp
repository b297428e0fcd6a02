#include "src/platform/filesizelimit.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <ctime>

#include <gtest/gtest.h>

#include "support/replacedfunction.h"

namespace {

// One thread only; not atomic, as sanitizers would have to look at that before they are ready.
volatile long g_second = 0;  // of the clock; 0: the real one
volatile rlim_t g_limit = RLIM_INFINITY;
volatile bool g_fails = false;
volatile int g_asked = 0;

}  // namespace

// Sanitizers call these while they start.
#define ZO_NOT_SANITIZED __attribute__((no_sanitize("address,thread,undefined")))

// This program's own come before the C library's.
extern "C" {

ZO_REPLACES ZO_NOT_SANITIZED int clock_gettime(clockid_t clock, timespec* now) noexcept {
    if (g_second == 0 || clock != CLOCK_MONOTONIC_COARSE) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    }
    now->tv_sec = g_second;
    now->tv_nsec = 999999999;
    return 0;
}

ZO_REPLACES ZO_NOT_SANITIZED int getrlimit(__rlimit_resource_t resource, rlimit* limit) noexcept {
    if (resource != RLIMIT_FSIZE) return static_cast<int>(syscall(SYS_prlimit64, 0, resource, nullptr, limit));
    g_asked = g_asked + 1;
    limit->rlim_cur = g_limit;
    limit->rlim_max = RLIM_INFINITY;
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
