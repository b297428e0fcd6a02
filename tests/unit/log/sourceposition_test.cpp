#include "src/log/sourceposition.h"

#include <atomic>
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "src/log/recordsource.h"
#include "src/log/recordview.h"
#include "support/forkedchild.h"
#include "support/memoryfault.h"

namespace NS_BUNDLEMGR1 {
namespace {

constexpr unsigned long kLargestSmallLine = (1UL << 48) - 1;

std::string Source(const std::string& bundle, const std::string& service, const std::string& file) {
    return bundle + ", Service = " + service + " \nfilename = " + file;
}

std::string WithLine(const RecordView& record) {
    return std::string(record.source) + ":" + std::to_string(record.line);
}

class SourcePositionTest : public testing::Test {
protected:
    SourcePositionTest() {
        m_position.SetBundle("bundle");
        m_position.SetService("service");
    }

    std::string Taken() const {
        RecordSource room;
        RecordView record;
        return m_position.Take(room, record) ? WithLine(record) : "nothing";
    }
    std::string TakenAt(const char* file, unsigned long line) const {
        RecordSource room;
        RecordView record;
        return m_position.TakeAt(file, line, room, record) ? WithLine(record) : "nothing";
    }

    SourcePosition m_position;
};

TEST_F(SourcePositionTest, IsEmptyAtFirst) {
    const SourcePosition position;
    RecordSource room;
    RecordView record;
    EXPECT_TRUE(position.Take(room, record));
    EXPECT_EQ(Source("", "", "") + ":0", WithLine(record));
}

TEST_F(SourcePositionTest, GivesWhatWasSetLast) {
    m_position.Set("one", 1);
    EXPECT_EQ(Source("bundle", "service", "one") + ":1", Taken());
    m_position.Set("one", 2);
    EXPECT_EQ(Source("bundle", "service", "one") + ":2", Taken());
    m_position.Set("two", 2);
    EXPECT_EQ(Source("bundle", "service", "two") + ":2", Taken());
    m_position.Set("one", 3);
    EXPECT_EQ(Source("bundle", "service", "one") + ":3", Taken());
    m_position.SetService("other");
    EXPECT_EQ(Source("bundle", "other", "one") + ":3", Taken());
    m_position.SetBundle("another");
    EXPECT_EQ(Source("another", "other", "one") + ":3", Taken());
}

TEST_F(SourcePositionTest, ANullTextIsEmpty) {
    m_position.Set("file", 1);
    m_position.SetBundle(nullptr);
    m_position.SetService(nullptr);
    EXPECT_EQ(Source("", "", "file") + ":1", Taken());
    m_position.Set(nullptr, 2);
    EXPECT_EQ(Source("", "", "") + ":2", Taken());
}

TEST_F(SourcePositionTest, KeepsLinesOfAnySize) {
    for (const unsigned long line : {kLargestSmallLine, kLargestSmallLine + 1, ULONG_MAX, 0UL, 1UL, ULONG_MAX - 1}) {
        const std::string lineText = ":" + std::to_string(line);
        m_position.Set("file", line);
        EXPECT_EQ(Source("bundle", "service", "file") + lineText, Taken());
        m_position.SetBundle("renamed");
        EXPECT_EQ(Source("renamed", "service", "file") + lineText, Taken());
        m_position.SetBundle("bundle");
        EXPECT_EQ(Source("bundle", "service", "file") + lineText, Taken());
    }
}

TEST_F(SourcePositionTest, TheCallersTextMayChangeAfterwards) {
    std::string file = "before";
    m_position.Set(file.c_str(), 1);
    file = "behind";
    EXPECT_EQ(Source("bundle", "service", "before") + ":1", Taken());
    m_position.Set(file.c_str(), 1);
    EXPECT_EQ(Source("bundle", "service", "behind") + ":1", Taken());
}

// More than it remembers, and again.
TEST_F(SourcePositionTest, TakesAnyNumberOfFiles) {
    for (int round = 0; round < 2; ++round) {
        for (unsigned long i = 0; i < 100; ++i) {
            const std::string file = std::string(i, 'f');
            m_position.Set(file.c_str(), i);
            m_position.Set(file.c_str(), i + 1);
            EXPECT_EQ(Source("bundle", "service", file) + ":" + std::to_string(i + 1), Taken());
            EXPECT_EQ(Source("bundle", "service", "own") + ":7", TakenAt("own", 7));
        }
    }
    m_position.SetService("renamed");
    EXPECT_EQ(Source("bundle", "renamed", std::string(99, 'f')) + ":100", Taken());
}

// A file that is known is set without the names, which are made up again when one of them changes.
TEST_F(SourcePositionTest, ARenamedProxyKeepsTheFileThatWasSetLast) {
    m_position.Set("one", 1);
    m_position.Set("two", 2);
    m_position.Set("one", 3);
    m_position.SetBundle("renamed");
    EXPECT_EQ(Source("renamed", "service", "one") + ":3", Taken());
    m_position.Set("two", 4);
    m_position.SetBundle("bundle");
    EXPECT_EQ(Source("bundle", "service", "two") + ":4", Taken());
    m_position.Set("one", ULONG_MAX);
    m_position.SetService("renamed");
    EXPECT_EQ(Source("bundle", "renamed", "one") + ":18446744073709551615", Taken());
}

TEST_F(SourcePositionTest, TakesNamesOfAnySize) {
    for (const std::size_t size : {400U, 600U, 1U, 100000U, 0U}) {
        const std::string name(size, 'n');
        m_position.SetBundle(name.c_str());
        m_position.Set("file", 1);
        m_position.Set("other", 2);
        EXPECT_EQ(Source(name, "service", "other") + ":2", Taken());
        EXPECT_EQ(Source(name, "service", "own") + ":3", TakenAt("own", 3));
    }
}

// What is remembered is no copy. A name of a megabyte would be kept for good otherwise.
TEST_F(SourcePositionTest, RemembersSourcesOfUsualSizeOnly) {
    const auto isRemembered = [this](const std::string& file) {
        m_position.Set(file.c_str(), 1);
        RecordSource rooms[2];
        RecordView records[2];
        for (int i = 0; i < 2; ++i) EXPECT_TRUE(m_position.Take(rooms[i], records[i]));
        return records[0].source.data() == records[1].source.data();
    };
    EXPECT_TRUE(isRemembered("file"));
    EXPECT_TRUE(isRemembered(std::string(400, 'f')));
    EXPECT_FALSE(isRemembered(std::string(600, 'f')));
    EXPECT_TRUE(isRemembered("file"));
}

TEST_F(SourcePositionTest, APositionOfARecordsOwnLeavesTheOtherOne) {
    m_position.Set("file", 1);
    EXPECT_EQ(Source("bundle", "service", "own") + ":18446744073709551615", TakenAt("own", ULONG_MAX));
    EXPECT_EQ(Source("bundle", "service", "file") + ":1", Taken());
}

// At each request for memory, until there is none left that could fail.
TEST_F(SourcePositionTest, WithoutMemoryATextIsTheNewOneOrEmpty) {
    for (long n = 1; n == 1 || test::MemoryFault::Failed() > 0; ++n) {
        const std::string file = std::string(100, 'f') + std::to_string(n);
        const std::string service = std::string(100, 's') + std::to_string(n);
        m_position.SetService("");
        m_position.Set("before", 1);
        {
            const test::MemoryFault fault(n);
            m_position.Set(file.c_str(), 2);
            m_position.SetService(service.c_str());
        }
        const std::string taken = Taken();
        EXPECT_TRUE(taken == Source("bundle", service, file) + ":2" || taken == Source("bundle", service, "") + ":2" ||
                    taken == Source("bundle", "", file) + ":2")
            << taken;
    }
}

TEST_F(SourcePositionTest, WithoutMemoryForALargeSourceThereIsNone) {
    const std::string file(1000, 'f');
    {
        const test::MemoryFault fault(1, test::MemoryFault::kFromThenOn);
        EXPECT_EQ(0U, TakenAt(file.c_str(), 1).find("nothing"));
    }
    EXPECT_EQ(Source("bundle", "service", file) + ":1", TakenAt(file.c_str(), 1));
}

// Each file has a line of its own: a record with another one has been mixed.
TEST_F(SourcePositionTest, FilesKeepTheirLinesWhileOthersChangeThemAndTheNames) {
    constexpr unsigned long kFiles = 4;
    constexpr int kTimes = 20000;
    std::atomic<bool> isOver{false};
    m_position.Set("0", 0);
    std::vector<std::thread> threads;
    for (unsigned long i = 0; i < kFiles; ++i) {
        threads.emplace_back([this, i] {
            for (int n = 0; n < kTimes; ++n) m_position.Set(std::to_string(i).c_str(), i);
        });
    }
    std::thread renamer([&] {
        for (int n = 0; !isOver; ++n) {
            m_position.SetBundle(n % 2 == 0 ? "even" : "odd");
            m_position.SetService(n % 3 == 0 ? "" : "service");
        }
    });
    for (int n = 0; n < kTimes; ++n) {
        const std::string taken = Taken();
        const std::size_t line = taken.rfind(':');
        EXPECT_EQ(taken.substr(line + 1), taken.substr(line - 1, 1)) << taken;
    }
    for (std::thread& thread : threads) thread.join();
    isOver = true;
    renamer.join();
}

// Names that are known, so that nothing takes memory: renaming always takes the lock.
TEST_F(SourcePositionTest, AChildHasWholeNamesWhateverOtherThreadsRenamed) {
    for (const char* const name : {"even", "odd"}) {
        m_position.SetBundle(name);
        m_position.Set("file", 1);
    }
    std::atomic<bool> isOver{false};
    std::thread renamer([&] {
        for (int n = 0; !isOver; ++n) m_position.SetBundle(n % 2 == 0 ? "even" : "odd");
    });
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(0, test::InForkedChild([&] {
                      const std::string before = Taken();
                      m_position.SetBundle("odd");
                      return (before == Source("even", "service", "file") + ":1" ||
                              before == Source("odd", "service", "file") + ":1") &&
                             Taken() == Source("odd", "service", "file") + ":1";
                  }));
    }
    isOver = true;
    renamer.join();
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
