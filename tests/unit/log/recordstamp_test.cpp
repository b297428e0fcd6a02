#include "src/log/recordstamp.h"

#include <climits>
#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include <bundlemgr/base.h>

#include "logtest.h"
#include "support/replacedfunction.h"
#include "support/testclock.h"

namespace {

int g_zonesAsked = 0;

}  // namespace

// This program's own comes before the C library's. Time stamps ask it for the zone's name.
extern "C" ZO_REPLACES size_t strftime(char* text, size_t size, const char* format, const tm* time) noexcept {
    if (std::strcmp(format, "%Z") == 0) ++g_zonesAsked;
    using Function = size_t (*)(char*, size_t, const char*, const tm*);
    static const auto next = test::Next<Function>("strftime");
    return next(text, size, format, time);
}

namespace NS_BUNDLEMGR1 {
namespace {

using test::kTheSecond;

TEST(RecordStampTest, ThreadIsTheLowHalfOfItsIdAndSigned) {
    EXPECT_EQ("Thread " + std::to_string(static_cast<int>(pthread_self() & 0xFFFFFFFFU)),
              RecordThread::OfThisThread().Text());
    std::string other;
    std::thread([&] { other = RecordThread::OfThisThread().Text(); }).join();
    EXPECT_NE(RecordThread::OfThisThread().Text(), other);
}

class TimeStampCacheTest : public testing::Test {
protected:
    TimeStampCacheTest() : m_zone("UTC") {}

    const std::string& Get(long seconds, long microseconds) {
        return m_cache.Get(ACE_Time_Value(seconds, microseconds));
    }

    const test::ScopedZone m_zone;
    TimeStampCache m_cache;
};

TEST_F(TimeStampCacheTest, AsksOnceForOneSecond) {
    g_zonesAsked = 0;
    EXPECT_EQ("UTC 2024-01-31 23:59:59.000042", Get(kTheSecond, 42));
    EXPECT_EQ("UTC 2024-01-31 23:59:59.999999", Get(kTheSecond, 999999));
    EXPECT_EQ("UTC 2024-01-31 23:59:59.000000", Get(kTheSecond, 0));
    EXPECT_EQ("UTC 2024-01-31 23:59:59.123456", Get(kTheSecond, 123456));
    EXPECT_EQ(1, g_zonesAsked);
    EXPECT_EQ("UTC 2024-02-01 00:00:00.000042", Get(kTheSecond + 1, 42));
    EXPECT_EQ(2, g_zonesAsked);
    EXPECT_EQ("UTC 2024-01-31 23:59:59.000042", Get(kTheSecond, 42));
    EXPECT_EQ(3, g_zonesAsked);
}

TEST_F(TimeStampCacheTest, NoticesAnotherZone) {
    EXPECT_EQ("UTC 2024-01-31 23:59:59.000042", Get(kTheSecond, 42));
    {
        const test::ScopedZone zone("CST-8");
        m_cache.LookAtZone();
        EXPECT_EQ("CST 2024-02-01 07:59:59.000043", Get(kTheSecond, 43));
        EXPECT_EQ("CST 2024-02-01 07:59:59.000044", Get(kTheSecond, 44));
    }
    tzset();
    m_cache.LookAtZone();
    EXPECT_EQ("UTC 2024-01-31 23:59:59.000045", Get(kTheSecond, 45));
}

TEST_F(TimeStampCacheTest, NoticesAZoneThatTakesThePlaceOfAnotherVariable) {
    unsetenv("TZ");
    static char s_first[] = "A_VARIABLE=1";
    static char s_last[] = "B_VARIABLE=1";
    putenv(s_first);
    putenv(s_last);
    Get(kTheSecond, 42);
    unsetenv("A_VARIABLE");
    unsetenv("B_VARIABLE");
    setenv("TZ", "CST-8", 1);
    putenv(s_last);
    tzset();
    m_cache.LookAtZone();
    EXPECT_EQ("CST 2024-02-01 07:59:59.000042", Get(kTheSecond, 42));
    unsetenv("B_VARIABLE");
}

TEST_F(TimeStampCacheTest, NoticesAZoneThatIsWrittenOverAnotherVariable) {
    unsetenv("TZ");
    static char s_variable[] = "YY=CST-8";
    static char s_last[] = "B_VARIABLE=1";
    putenv(s_variable);
    putenv(s_last);
    Get(kTheSecond, 42);
    std::memcpy(s_variable, "TZ", 2);
    tzset();
    m_cache.LookAtZone();
    EXPECT_EQ("CST 2024-02-01 07:59:59.000042", Get(kTheSecond, 42));
    unsetenv("TZ");
    unsetenv("B_VARIABLE");
}

TEST_F(TimeStampCacheTest, AgreesWithTheFunctionForEveryTime) {
    const long years = 365L * 24 * 3600;
    for (const long seconds : {0L, -1L, kTheSecond, -5000 * years, 9000 * years, 2000000 * years, 90000000 * years,
                               2147483000 * years, LONG_MAX, LONG_MIN}) {
        for (const long microseconds : {0L, 42L, 999999L}) {
            const ACE_Time_Value time(seconds, microseconds);
            EXPECT_EQ(GetZoneTimeStamp(time), m_cache.Get(time)) << seconds << " " << microseconds;
        }
        ACE_Time_Value odd(seconds);
        for (const long microseconds : {-1L, -500000L, 1000000L, LONG_MAX}) {
            odd.usec(microseconds);  // as it is
            EXPECT_EQ(GetZoneTimeStamp(odd), m_cache.Get(odd)) << seconds << " " << microseconds;
        }
    }
}

TEST_F(TimeStampCacheTest, AsksEachTimeWhereTheZoneTakesConversion) {
    const test::TempDir dir;
    const std::string unused(15, '\0');
    std::string counts(24, '\0');
    counts[19] = 1;  // type
    counts[23] = 4;  // bytes of names
    const test::ScopedZone zone(
        ":" + dir.Write("zone", std::string("TZif") + '\0' + unused + counts + std::string(6, '\0') + "\xE9TZ" + '\0'));
    g_zonesAsked = 0;
    EXPECT_EQ("\xC3\xA9TZ 2024-01-31 23:59:59.000042", Get(kTheSecond, 42));
    EXPECT_EQ("\xC3\xA9TZ 2024-01-31 23:59:59.000043", Get(kTheSecond, 43));
    EXPECT_EQ(2, g_zonesAsked);
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
