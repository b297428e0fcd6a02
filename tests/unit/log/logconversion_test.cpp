// A record whose time stamp cannot be converted. Apart, and one test only, since the
// process asks for the local character set once.
#include <cerrno>

#include <gmock/gmock.h>

#include "logtest.h"
#include "src/platform/iconv/iconv.h"
#include "support/capture.h"
#include "support/testclock.h"

namespace {

int g_failures = 0;  // how many of the next calls fail
int g_failed = 0;

}  // namespace

// The linker puts the first in front of the second.
extern "C" {
libiconv_t __real_libiconv_open(const char* to, const char* from);
libiconv_t __wrap_libiconv_open(const char* to, const char* from);
libiconv_t __wrap_libiconv_open(const char* to, const char* from) {
    if (g_failures == 0) return __real_libiconv_open(to, from);
    --g_failures;
    ++g_failed;
    errno = EINVAL;
    return NS_BUNDLEMGR1::NoIconv();
}
}

namespace NS_BUNDLEMGR1 {
namespace {

using test::LogRecord;

// A zone file: at offset 0 for ever, and named in Chinese.
std::string ZoneFile() {
    const std::string unused(15, '\0');
    std::string counts(24, '\0');
    counts[19] = 1;  // type
    counts[23] = 5;  // bytes of names
    const std::string type(6, '\0');
    return std::string("TZif") + '\0' + unused + counts + type + "\xD6\xD0TZ" + '\0';
}

class LogConversionTest : public test::LogTest {
protected:
    LogConversionTest() : m_zone(":" + m_dir.Write("zone", ZoneFile())), m_share("_APP_SHARE_DIR", m_dir / "share") {
        m_dir.Write("share/conf/corba_start.cfg", "LocalCharset=1\n");
        CorbaConfigItems::Instance()->GetAllStartItem();
        BundleMgr::Instance();
        test::Clock::Set(test::kTheSecond, 42);
    }
    ~LogConversionTest() override {
        CorbaConfigItems::Destroy();
        test::Clock::Reset();
    }

    static void Append(const std::string& text) {
        LogProxyDebugInfoBufMgr::Instance()->AppendOutputInfo(test::MakeInfo(1, text));
    }

    const test::ScopedZone m_zone;
    const test::ScopedEnv m_share;
};

TEST_F(LogConversionTest, AFailureIsLoggedOnceABatchAndTheStampStays) {
    constexpr char kReport[] = "[CodeSetConvert]:iconv_open(UTF-8,GBK) failed.\n";
    g_failures = 3;  // the stamps of "1", of the report on it, and of "2"
    const std::string printed = test::StdoutOf([] {
        for (const char* const text : {"1", "2", "3", "4"}) Append(text);
    });
    EXPECT_EQ(3, g_failed);
    std::string reports;
    for (int i = 0; i < 2 * 3; ++i) reports += kReport;
    EXPECT_EQ(reports, printed);  // each printed, and echoed by the log

    std::string expected;
    unsigned long sequence = 0;
    const std::vector<LogRecord> records = test::ParseLog(Log());
    for (const char* const text : {"1", kReport, "2", kReport, "3", "4"}) {
        LogRecord record;
        record.sequence = ++sequence;
        record.level = 1;
        record.stamp = (sequence <= 3 ? "\xD6\xD0" : "\xE4\xB8\xAD") + std::string("TZ 2024-01-31 23:59:59.000042");
        record.text = text;
        if (text == kReport && sequence <= records.size()) {
            record.bundle = "BundleMgr";
            record.service = "Core";
            record.file = "codesetconvert";
            record.line = records[sequence - 1].line;
        }
        expected += record.Bytes();
    }
    EXPECT_EQ(expected, Log());
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
