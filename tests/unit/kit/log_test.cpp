#include <thread>
#include <type_traits>

#include <gmock/gmock.h>

#include <bundlemgr/kit.h>

#include "support/capture.h"
#include "support/forkedchild.h"
#include "unit/log/logtest.h"

namespace {

using test::LogRecord;
using test::StdoutOf;

class KitLogTest : public test::LogTest {
protected:
    /// The only record of the log, which must have these bytes.
    void ExpectRecord(const LogRecord& expected) {
        const std::vector<LogRecord> records = test::ParseLog(Log());
        ASSERT_EQ(1U, records.size());
        LogRecord record = expected;
        record.stamp = records[0].stamp;
        EXPECT_EQ(record.Bytes(), Log());
    }
};

LogRecord RecordOf(int level, unsigned long line, const std::string& text) {
    LogRecord record;
    record.sequence = 1;
    record.level = level;
    record.file = "log_test";
    record.line = line;
    record.text = text;
    return record;
}

// Constant-initialised: a bundle may have one as a static object.
const zo::Log g_static("Static", "static_bundle", "StaticSvc");

TEST_F(KitLogTest, ARecordHasItsNamesItsSourceAndItsLine) {
    const zo::Log log("Hello", "hello_bundle", "HelloSvc");
    EXPECT_EQ("4 are up\n", StdoutOf([&] { ZO_INFO(log, "%d are up\n", 4); }));
    LogRecord expected = RecordOf(3, __LINE__ - 1, "4 are up\n");
    expected.bundle = "hello_bundle";
    expected.service = "HelloSvc";
    ExpectRecord(expected);
    EXPECT_EQ("Hello", log.Proxy()->GetName());
}

TEST_F(KitLogTest, LeavesTheNamesOfTheProxyAloneThatItIsNotGiven) {
    NS_BUNDLEMGR1::LogProxy* const proxy = NS_BUNDLEMGR1::BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("Hello");
    proxy->SetBundleName("theirs");
    const zo::Log log("Hello");
    StdoutOf([&] { ZO_LEVEL2(log, "text without arguments\n"); });
    LogRecord expected = RecordOf(2, __LINE__ - 1, "text without arguments\n");
    expected.bundle = "theirs";
    ExpectRecord(expected);
}

TEST_F(KitLogTest, EachLevelHasItsWord) {
    StdoutOf([] {
        ZO_CRITICAL(g_static, "%s", "0");
        ZO_ERROR(g_static, "%s", "1");
        ZO_LEVEL2(g_static, "%s", "2");
        ZO_INFO(g_static, "%s", "3");
    });
    const std::vector<LogRecord> records = test::ParseLog(Log());
    ASSERT_EQ(4U, records.size());
    for (const LogRecord& record : records) EXPECT_EQ(std::to_string(record.level), record.text);
}

TEST_F(KitLogTest, AWordIsOneStatement) {
    StdoutOf([] {
        for (const bool isBad : {true, false}) {
            if (isBad)
                ZO_ERROR(g_static, "bad");
            else
                ZO_INFO(g_static, "good");
        }
    });
    EXPECT_THAT(test::Texts(test::ParseLog(Log())), testing::ElementsAre("bad", "good"));
}

TEST_F(KitLogTest, NeedsNoInitialisationAndNoEnd) {
    EXPECT_TRUE(std::is_trivially_destructible_v<zo::Log>);
    static constexpr NS_BUNDLEMGR1::Log s_constant("Constant");
    EXPECT_EQ("Constant", s_constant.Proxy()->GetName());
}

TEST_F(KitLogTest, SurvivesTheBundleManager) {
    const zo::Log log("Hello");
    StdoutOf([&] { ZO_INFO(log, "early"); });
    NS_BUNDLEMGR1::BundleMgr::Destroy();
    StdoutOf([&] { ZO_INFO(log, "late"); });
    EXPECT_THAT(test::Texts(test::ParseLog(Log())), testing::ElementsAre("early", "late"));
}

TEST_F(KitLogTest, ThreadsThatShareALogKeepPositionAndTextTogether) {
    constexpr int kRecords = 500;
    const zo::Log log("Hello");
    unsigned long firstLine = 0;
    unsigned long secondLine = 0;
    StdoutOf([&] {
        std::thread first([&] {
            firstLine = __LINE__ + 1;
            for (int i = 0; i < kRecords; ++i) ZO_INFO(log, "first");
        });
        secondLine = __LINE__ + 1;
        for (int i = 0; i < kRecords; ++i) ZO_INFO(log, "second");
        first.join();
    });
    const std::vector<LogRecord> records = test::ParseLog(Log());
    EXPECT_EQ(2U * kRecords, records.size());
    for (const LogRecord& record : records) EXPECT_EQ(record.text == "first" ? firstLine : secondLine, record.line);
}

TEST_F(KitLogTest, AForkedChildHasRecordsOfItsOwn) {
    const zo::Log log("Hello");
    StdoutOf([&] {
        ZO_INFO(log, "parent");
        EXPECT_EQ(0, test::InForkedChild([&] {
                      ZO_INFO(log, "child");
                      return true;
                  }));
    });
    EXPECT_THAT(test::Texts(test::ParseLog(Log())), testing::UnorderedElementsAre("parent", "child"));
}

// ---- The bare name of a source file ----

using NS_BUNDLEMGR1::detail::SourceName;
using NS_BUNDLEMGR1::detail::SourceNameLength;

TEST(SourceNameTest, LosesFolderAndExtension) {
    constexpr SourceName<SourceNameLength("/a/b.d/alarmsvc.cpp")> name("/a/b.d/alarmsvc.cpp");
    EXPECT_STREQ("alarmsvc", name.text);
    EXPECT_EQ(sizeof "alarmsvc", sizeof name.text);
    constexpr SourceName<SourceNameLength("alarmsvc.cpp")> bare("alarmsvc.cpp");
    EXPECT_STREQ("alarmsvc", bare.text);
    constexpr SourceName<SourceNameLength("/a.d/alarmsvc")> without("/a.d/alarmsvc");
    EXPECT_STREQ("alarmsvc", without.text);
    constexpr SourceName<SourceNameLength("a/alarm.svc.cpp")> dotted("a/alarm.svc.cpp");
    EXPECT_STREQ("alarm.svc", dotted.text);
    constexpr SourceName<SourceNameLength("a/.hidden")> hidden("a/.hidden");
    EXPECT_STREQ(".hidden", hidden.text);
}

}  // namespace
