#include <bundlemgr/detail/recordblocks.h>

#include <malloc.h>

#include <climits>
#include <vector>

#include <gmock/gmock.h>

#include "logtest.h"
#include "recordof.h"
#include "src/log/recordreader.h"
#include "support/memoryfault.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::MakeInfo;
using test::MemoryFault;
using test::RecordOf;
using testing::ElementsAre;
using testing::IsEmpty;
using Strings = std::vector<std::string>;

constexpr char kNames[] = "bundle, Service = service \nfilename = file";

DebugInfo Info(const std::string& text, const std::string& service = "service") {
    DebugInfo info = MakeInfo(1, text);
    info.bundle = "bundle";
    info.service = service;
    info.file = "file";
    info.line = ULONG_MAX;
    return info;
}

Strings Texts(const RecordBlocks& blocks) {
    Strings texts;
    for (RecordReader reader(blocks); reader; reader.Next()) texts.emplace_back(reader.Record().text);
    return texts;
}

TEST(RecordBlocksTest, AreEmptyAtFirst) {
    const RecordBlocks blocks;

    EXPECT_TRUE(blocks.IsEmpty());
    EXPECT_EQ(0U, blocks.Size());
    EXPECT_THAT(Texts(blocks), IsEmpty());
}

TEST(RecordBlocksTest, GiveBackWhatTheyTook) {
    RecordBlocks blocks;
    DebugInfo info = Info("text");
    info.time.sec(-1);
    info.time.usec(-500000);  // as it is
    ASSERT_TRUE(blocks.Append(RecordOf(info)));
    info = DebugInfo();

    const RecordReader reader(blocks);

    const RecordView& record = reader.Record();
    EXPECT_EQ(1, record.level);
    EXPECT_EQ(-1, record.time.sec());
    EXPECT_EQ(-500000, record.time.usec());
    EXPECT_EQ(test::ThisThread(), record.thread);
    EXPECT_EQ(kNames, record.source);
    EXPECT_EQ(ULONG_MAX, record.line);
    EXPECT_EQ("text", record.text);
}

TEST(RecordBlocksTest, KeepTheOrderOfManyRecords) {
    RecordBlocks blocks;
    Strings texts;
    for (std::size_t i = 0; i < 2000; ++i) {
        texts.push_back(std::to_string(i) + std::string(i % 300, 'x'));
        ASSERT_TRUE(blocks.Append(RecordOf(Info(texts.back()))));
    }

    EXPECT_EQ(2000U, blocks.Size());
    EXPECT_EQ(texts, Texts(blocks));
}

TEST(RecordBlocksTest, TellRecordsApartThatShareNames) {
    RecordBlocks blocks;
    const Strings services = {"a", "a", "b", "b", "a", "", "", "b"};
    for (const std::string& service : services) ASSERT_TRUE(blocks.Append(RecordOf(Info("t", service))));

    Strings found;
    for (RecordReader reader(blocks); reader; reader.Next()) found.emplace_back(reader.Record().source);

    Strings expected;
    for (const std::string& service : services)
        expected.push_back("bundle, Service = " + service + " \nfilename = file");
    EXPECT_EQ(expected, found);
}

TEST(RecordBlocksTest, TakeRecordsLargerThanABlock) {
    RecordBlocks blocks;
    const Strings texts = {"a", std::string(100000, 'x'), "b", std::string(4096, 'y'), ""};
    for (const std::string& text : texts) ASSERT_TRUE(blocks.Append(RecordOf(Info(text))));

    EXPECT_EQ(texts, Texts(blocks));
}

TEST(RecordBlocksTest, TheOldestIsTheFirstToGo) {
    RecordBlocks blocks;
    constexpr std::size_t kKept = 128;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(blocks.Append(RecordOf(MakeInfo(1, std::to_string(i), test::kTheSecond + i))));
        if (blocks.Size() > kKept) blocks.PopFront();
    }

    EXPECT_EQ(kKept, blocks.Size());
    EXPECT_EQ(ACE_Time_Value(test::kTheSecond + 872, 42), blocks.FirstTime());
    EXPECT_EQ("872", Texts(blocks).front());
    EXPECT_EQ("999", Texts(blocks).back());
    while (!blocks.IsEmpty()) blocks.PopFront();
    ASSERT_TRUE(blocks.Append(RecordOf(Info("again"))));
    EXPECT_THAT(Texts(blocks), ElementsAre("again"));
}

TEST(RecordBlocksTest, ChangeHandsWhole) {
    RecordBlocks full;
    RecordBlocks other;
    ASSERT_TRUE(full.Append(RecordOf(Info("a"))));

    other.Swap(full);

    EXPECT_THAT(Texts(full), IsEmpty());
    EXPECT_THAT(Texts(other), ElementsAre("a"));
    other.Clear();
    EXPECT_TRUE(other.IsEmpty());
}

TEST(RecordBlocksTest, WithoutMemoryARecordIsRefusedAndTheOthersStay) {
    RecordBlocks blocks;
    const RecordOf large(Info(std::string(5000, 'x')));
    ASSERT_TRUE(blocks.Append(RecordOf(Info("a"))));
    {
        const MemoryFault fault(1, MemoryFault::kFromThenOn);
        EXPECT_FALSE(blocks.Append(large));
    }
    ASSERT_TRUE(blocks.Append(RecordOf(Info("b"))));

    EXPECT_THAT(Texts(blocks), ElementsAre("a", "b"));
}

#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(RecordBlocksTest, AnOrdinaryRecordTakesLittleMemory) {
    RecordBlocks blocks;
    constexpr std::size_t kRecords = 8000;
    constexpr std::size_t kMost = 200;  // bytes
    const RecordOf record(Info(std::string(100, 'x')));

    const std::size_t before = mallinfo2().uordblks;
    for (std::size_t i = 0; i < kRecords; ++i) ASSERT_TRUE(blocks.Append(record));

    EXPECT_GE(kMost, (mallinfo2().uordblks - before) / kRecords);
}
#endif

}  // namespace
}  // namespace NS_BUNDLEMGR1
