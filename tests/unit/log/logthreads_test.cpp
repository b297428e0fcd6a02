// Many threads that log through one proxy while others change its settings.
#include <atomic>
#include <functional>
#include <map>
#include <set>
#include <thread>

#include <gmock/gmock.h>

#include "logtest.h"
#include "support/capture.h"
#include "support/wait.h"

namespace NS_BUNDLEMGR1 {
namespace {

using test::LogRecord;
using Records = std::vector<LogRecord>;

constexpr int kThreads = 8;
constexpr int kRecordsPerThread = 1500;
constexpr char kNotice[] = "Debug cache is full, force output excuted.";

// Short and long ones; the long ones do not fit into a string object itself.
std::string SourceOf(int thread) {
    return thread % 2 == 0 ? "f" + std::to_string(thread) : "a_rather_long_source_file_" + std::to_string(thread);
}

int LineOf(int thread) {
    return 1000 + thread;
}

std::string TextOf(int thread, int number) {
    return "thread " + std::to_string(thread) + " record " + std::to_string(number) +
           std::string(static_cast<std::size_t>(thread) * 20, '.');
}

class LogThreadsTest : public test::LogTest {
protected:
    LogThreadsTest() : m_core(*BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("BundleMgrCore")) {
        m_core.SetBundleName("BundleMgr");
        m_core.SetServiceName("Core");
    }

    /// Eight threads log as the library does, at levels 1 and 3, while another repeats
    /// `disturb`. @return what they left in the log, the notices of a full buffer aside
    Records Storm(const std::function<void(int)>& disturb) {
        test::StdoutOf([&] {
            std::atomic<int> waiting{kThreads + 1};
            std::atomic<int> logging{kThreads};
            const auto startTogether = [&] {
                --waiting;
                test::WaitFor([&] { return waiting == 0; });
            };
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t) {
                threads.emplace_back([&, t] {
                    startTogether();
                    for (int i = 0; i < kRecordsPerThread; ++i) {
                        m_core.SetPosition(SourceOf(t).c_str(), static_cast<unsigned long>(LineOf(t)));
                        m_core.Printf(i % 2 == 0 ? 1 : 3, "%s", TextOf(t, i).c_str());
                    }
                    --logging;
                });
            }
            threads.emplace_back([&] {
                startTogether();
                for (int round = 0; logging > 0; ++round) disturb(round);
            });
            for (std::thread& thread : threads) thread.join();
        });
        m_core.EnableAllLevels();
        m_core.SetDebugOutputMode(LOG_OUTPUT_IMMEDIATE);
        m_core.FlushDebugInfo();
        return WithoutNotices(test::ParseLog(Log()));
    }

    /// Checks that no number is missing, of all records.
    static Records WithoutNotices(const Records& all) {
        Records records;
        unsigned long sequence = 0;
        for (const LogRecord& record : all) {
            EXPECT_EQ(++sequence, record.sequence);
            if (record.text != kNotice) records.push_back(record);
        }
        return records;
    }

    static void ExpectWhole(const Records& records) {
        std::map<std::string, std::string> positions;  // line, file
        for (int t = 0; t < kThreads; ++t) positions[std::to_string(LineOf(t))] = SourceOf(t);
        std::map<std::string, int> levels;   // text, level
        std::map<int, std::string> threads;  // number in the text, thread
        for (int t = 0; t < kThreads; ++t) {
            for (int i = 0; i < kRecordsPerThread; ++i) levels[TextOf(t, i)] = i % 2 == 0 ? 1 : 3;
        }
        for (const LogRecord& record : records) {
            EXPECT_EQ(1U, levels.count(record.text)) << record.text;
            EXPECT_EQ(levels[record.text], record.level);
            // Another thread's position perhaps, but never parts of two.
            EXPECT_EQ(positions[std::to_string(record.line)], record.file);
            const int thread = std::stoi(record.text.substr(7));
            EXPECT_EQ(threads.emplace(thread, record.thread).first->second, record.thread);
        }
    }

    static void ExpectAllOnce(const Records& records) {
        std::vector<std::string> logged = test::Texts(records);
        std::vector<std::string> expected;
        for (int t = 0; t < kThreads; ++t) {
            for (int i = 0; i < kRecordsPerThread; ++i) expected.push_back(TextOf(t, i));
        }
        std::sort(logged.begin(), logged.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(expected.size(), logged.size());
        EXPECT_TRUE(expected == logged);
    }

    static void ExpectOrderOfEachThread(const Records& records) {
        std::map<int, int> next;
        for (const LogRecord& record : records) {
            const int thread = std::stoi(record.text.substr(7));
            EXPECT_EQ(TextOf(thread, next[thread]++), record.text);
        }
    }

    LogProxy& m_core;
};

TEST_F(LogThreadsTest, ImmediateRecordsAreWholeAndInOrder) {
    const Records records = Storm([](int) { std::this_thread::yield(); });
    ExpectWhole(records);
    ExpectAllOnce(records);
    ExpectOrderOfEachThread(records);
}

TEST_F(LogThreadsTest, NothingIsLostWhileLevelsAndModesFlip) {
    const Records records = Storm([&](int round) {
        m_core.SetDebugOutputMode(round % 2);
        m_core.DisableLevel(0);
        m_core.DisableLevel(2);
        m_core.IsLevelEnabled(1);
        m_core.EnableLevel(2);
        m_core.EnableLevel(0);
        m_core.EnableAllLevels();
    });
    ExpectWhole(records);
    ExpectAllOnce(records);
    ExpectOrderOfEachThread(records);
}

TEST_F(LogThreadsTest, NothingIsLostWhileTheBufferIsFlushed) {
    const Records records = Storm([&](int round) {
        m_core.SetDebugOutputMode(round % 3 == 0 ? 1 : 0);
        m_core.FlushDebugInfo();
    });
    ExpectWhole(records);
    ExpectAllOnce(records);
}

TEST_F(LogThreadsTest, RecordsAreWholeWhileTheirOwnLevelsFlip) {
    const Records records = Storm([&](int round) {
        m_core.SetDebugOutputMode(round % 2);
        m_core.DisableLevel(1);
        m_core.DisableAllLevels();
        m_core.EnableLevel(3);
        m_core.EnableAllLevels();
    });
    ExpectWhole(records);
    const std::vector<std::string> texts = test::Texts(records);
    EXPECT_EQ(texts.size(), std::set<std::string>(texts.begin(), texts.end()).size());
}

TEST_F(LogThreadsTest, CriticalRecordsMergeWhileOthersLog) {
    m_core.SetDebugOutputMode(LOG_OUTPUT_BUFFERED);
    LogProxy& other = *BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("other");
    other.DisableLevel(2);
    Records records;
    int critical = 0;
    for (LogRecord& record : Storm([&](int) {
             other.Write(2, "filtered");
             other.WriteText("critical");
             ++critical;
         })) {
        if (record.text != "filtered" && record.text != "critical") records.push_back(record);
        if (record.text == "critical") --critical;
    }
    EXPECT_EQ(0, critical);
    ExpectWhole(records);
    ExpectAllOnce(records);
    ExpectOrderOfEachThread(records);
}

TEST_F(LogThreadsTest, NamesAreOldOrNewNeverMixed) {
    const std::string longName(100, 'n');
    const Records records = Storm([&](int round) {
        m_core.SetBundleName(round % 2 == 0 ? "BundleMgr" : longName.c_str());
        m_core.SetServiceName(round % 2 == 0 ? longName.c_str() : "Core");
    });
    ExpectWhole(records);
    ExpectAllOnce(records);
    for (const LogRecord& record : records) {
        EXPECT_TRUE(record.bundle == "BundleMgr" || record.bundle == longName) << record.bundle;
        EXPECT_TRUE(record.service == "Core" || record.service == longName) << record.service;
    }
}

}  // namespace
}  // namespace NS_BUNDLEMGR1
