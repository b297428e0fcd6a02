// What the tests of records on their way to the file have in common.
//
// As support/testclock.h, for one source file of a program only.
#pragma once

#include <string>

#include "logtest.h"
#include "support/testclock.h"

namespace test {

constexpr char kTheNextFileTime[] = "20240201_000000";

/// Records that are handed straight to the buffer, at the second before midnight.
class LogBufferTest : public LogTest {
protected:
    LogBufferTest() { Clock::Set(kTheSecond, 42); }
    ~LogBufferTest() override { Clock::Reset(); }

    static NS_BUNDLEMGR1::LogProxyDebugInfoBufMgr& Buffer() {
        return *NS_BUNDLEMGR1::LogProxyDebugInfoBufMgr::Instance();
    }
    static void Append(const std::string& text, int level = 1) { Buffer().AppendOutputInfo(MakeInfo(level, text)); }

    /// What the file holds of one that was appended.
    static std::string Bytes(unsigned long sequence, const std::string& text) {
        LogRecord record;
        record.sequence = sequence;
        record.level = 1;
        record.text = text;
        return record.Bytes();
    }

    std::string FirstFile() const { return ReadFile(FileOf(kTheFileTime)); }
    std::string NextFile() const { return ReadFile(FileOf(kTheNextFileTime)); }
    static void NextSecond() { Clock::Set(kTheSecond + 1, 42); }
};

}  // namespace test
