// What the tests of the log have in common.
#pragma once

#include <pthread.h>
#include <unistd.h>

#include <cstdarg>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <bundlemgr/bundlemgr.h>
#include <bundlemgr/log.h>

#include "support/environment.h"
#include "support/logfiles.h"
#include "support/tempdir.h"

namespace test {

// 31 January 2024, 23:59:59 UTC.
constexpr long kTheSecond = 1706745599;
constexpr char kTheStamp[] = "UTC 2024-01-31 23:59:59.000042";
constexpr char kTheFileTime[] = "20240131_235959";

class ScopedZone {
public:
    explicit ScopedZone(const std::string& zone) : m_zone("TZ", zone) { tzset(); }

private:
    ScopedEnv m_zone;
};

inline std::string ThisThread() {
    return "Thread " + std::to_string(static_cast<int>(pthread_self()));
}

/// One record, as the file holds it.
struct LogRecord {
    unsigned long sequence = 0;
    std::string stamp = kTheStamp;
    std::string thread = ThisThread();
    int level = 3;
    std::string bundle;
    std::string service;
    std::string file;
    unsigned long line = 0;
    std::string text;

    std::string Bytes() const {
        const std::string number = std::to_string(sequence);
        return "<" + number + ">\n" + stamp + ", " + thread + ", Level = " + std::to_string(level) +
               ", Bundle = " + bundle + ", Service = " + service + " \nfilename = " + file +
               ", lineno = " + std::to_string(line) + "\n" + text + "\n</" + number + ">\n\n";
    }
};

/// Takes the content of a log file apart; throws where it is not a row of records.
inline std::vector<LogRecord> ParseLog(const std::string& log) {
    std::size_t at = 0;
    const auto expect = [&](const std::string& literal) {
        if (log.compare(at, literal.size(), literal) != 0) {
            throw std::runtime_error("no \"" + literal + "\" at " + std::to_string(at) + ": " + log.substr(at, 200));
        }
        at += literal.size();
    };
    const auto until = [&](const std::string& literal) {
        const std::size_t end = log.find(literal, at);
        if (end == std::string::npos) throw std::runtime_error("no \"" + literal + "\" after " + std::to_string(at));
        const std::string field = log.substr(at, end - at);
        at = end + literal.size();
        return field;
    };
    std::vector<LogRecord> records;
    while (at < log.size()) {
        LogRecord record;
        expect("<");
        const std::string number = until(">\n");
        record.sequence = std::stoul(number);
        record.stamp = until(", ");
        record.thread = until(", Level = ");
        record.level = std::stoi(until(", Bundle = "));
        record.bundle = until(", Service = ");
        record.service = until(" \nfilename = ");
        record.file = until(", lineno = ");
        record.line = std::stoul(until("\n"));
        record.text = until("\n</" + number + ">\n\n");
        records.push_back(record);
    }
    return records;
}

inline std::vector<std::string> Texts(const std::vector<LogRecord>& records) {
    std::vector<std::string> texts;
    for (const LogRecord& record : records) texts.push_back(record.text);
    return texts;
}

inline NS_BUNDLEMGR1::DebugInfo MakeInfo(int level, const std::string& text, long seconds = kTheSecond,
                                         long microseconds = 42) {
    NS_BUNDLEMGR1::DebugInfo info;
    info.level = level;
    info.time = ACE_Time_Value(seconds, microseconds);
    info.thread = ThisThread();
    info.text = text;
    return info;
}

/// A log of its own for each test, in UTC, and no singleton left behind.
class LogTest : public testing::Test {
protected:
    LogTest() : m_zone("UTC"), m_logRoot("_APP_LOG_DIR", m_dir.Path()) {}
    ~LogTest() override {
        NS_BUNDLEMGR1::LogProxyDebugInfoBufMgr::Destroy();
        NS_BUNDLEMGR1::BundleMgr::Destroy();
    }

    std::string LogDir() const { return m_dir / "Develop/nbi/Agent_CORBA"; }
    std::string Log() const { return LogIn(LogDir()); }
    std::vector<std::string> Files() const { return FilesIn(LogDir()); }

    std::string FileOf(const std::string& fileTime) const {
        return LogDir() + "/pnbi_sys_" + fileTime + "_" + std::to_string(getpid()) + ".log";
    }

    ScopedZone m_zone;
    TempDir m_dir;
    ScopedEnv m_logRoot;
};

/// `VPrintfAt` with its arguments in place.
__attribute__((format(printf, 5, 6))) inline void PrintAt(NS_BUNDLEMGR1::LogProxy& proxy, const char* file,
                                                          unsigned long line, int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    proxy.VPrintfAt(file, line, level, format, args);
    va_end(args);
}

}  // namespace test
