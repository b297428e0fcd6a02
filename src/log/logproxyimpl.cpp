#include "src/log/logproxyimpl.h"

#include <cstddef>

#include "src/corelog/losscounter.h"
#include "src/log/recordsource.h"
#include "src/log/recordstamp.h"
#include "src/log/recordview.h"
#include "src/platform/standardoutput.h"
#include "src/platform/textformat.h"
#include "src/platform/wallclock.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr unsigned kMaxLevel = LOG_LEVEL_INFO;
constexpr std::uint64_t kAllLevels = 15;
constexpr std::size_t kFormatBufferSize = 4096;
constexpr char kFormatFailed[] = "vsnprintf_s failed.";

// Compared as unsigned, so that a negative level is out of range as well.
bool IsValidLevel(int level) {
    return static_cast<unsigned>(level) <= kMaxLevel;
}

std::uint64_t LevelBit(int level) {
    return std::uint64_t{1} << static_cast<unsigned>(level);
}

}  // namespace

LogProxyImpl::LogProxyImpl(const std::string& name) : m_strName(name), m_nLevelMask(kAllLevels), m_bEcho(true) {}

LogProxyImpl::~LogProxyImpl() = default;

void LogProxyImpl::Write(int level, const char* text) {
    const auto takeSource = [this](RecordSource& room, RecordView& record) { return m_position.Take(room, record); };
    WriteRecord(level, text != nullptr ? text : "", takeSource);
}

// `takeSource` is false where there is no memory for the source.
template <class TakeSource>
void LogProxyImpl::WriteRecord(int level, std::string_view text, TakeSource takeSource) {
    RecordView record;
    record.level = IsValidLevel(level) ? level : LOG_LEVEL_INFO;
    record.time = WallClock();
    record.thread = RecordThread::OfThisThread().Text();
    record.text = text;
    RecordSource room;
    const bool isMade = takeSource(room, record);
    if (m_bEcho) PrintOutText(text);
    if (isMade) {
        LogProxyDebugInfoBufMgr::Take(record, IsLevelEnabled(record.level));
    } else {
        LossCounter::Lost(1, record.time);
    }
}

void LogProxyImpl::WriteText(const char* text) {
    Write(LOG_LEVEL_CRITICAL, text);
}

void LogProxyImpl::Printf(int level, const char* format, ...) {
    char buffer[kFormatBufferSize];
    va_list args;
    va_start(args, format);
    const bool isFormatted = Format(buffer, format, args);
    va_end(args);
    if (!isFormatted) Write(LOG_LEVEL_ERROR, kFormatFailed);
    Write(level, buffer);
}

void LogProxyImpl::PrintfText(const char* format, ...) {
    char buffer[kFormatBufferSize];
    va_list args;
    va_start(args, format);
    const bool isFormatted = Format(buffer, format, args);
    va_end(args);
    if (!isFormatted) Write(LOG_LEVEL_ERROR, kFormatFailed);
    WriteText(buffer);
}

void LogProxyImpl::VPrintfAt(const char* file, unsigned long line, int level, const char* format, va_list args) {
    const auto takeSource = [=](RecordSource& room, RecordView& record) {
        return m_position.TakeAt(file != nullptr ? file : "", line, room, record);
    };
    char buffer[kFormatBufferSize];
    if (!Format(buffer, format, args)) WriteRecord(LOG_LEVEL_ERROR, kFormatFailed, takeSource);
    WriteRecord(level, buffer, takeSource);
}

// A format that fails still yields its record, with whatever the buffer holds.
bool LogProxyImpl::Format(char* buffer, const char* format, va_list args) {
    buffer[0] = '\0';
    return FormatText(buffer, kFormatBufferSize, format, args) >= 0;
}

bool LogProxyImpl::IsLevelEnabled(int level) {
    return IsValidLevel(level) && (m_nLevelMask.load(std::memory_order_relaxed) & LevelBit(level)) != 0;
}

bool LogProxyImpl::DisableLevel(int level) {
    if (!IsValidLevel(level)) return false;
    m_nLevelMask.fetch_and(~LevelBit(level), std::memory_order_relaxed);
    return true;
}

bool LogProxyImpl::EnableLevel(int level) {
    if (!IsValidLevel(level)) return false;
    m_nLevelMask.fetch_or(LevelBit(level), std::memory_order_relaxed);
    return true;
}

bool LogProxyImpl::DisableAllLevels() {
    m_nLevelMask.fetch_and(~kAllLevels, std::memory_order_relaxed);
    return true;
}

bool LogProxyImpl::EnableAllLevels() {
    m_nLevelMask.fetch_or(kAllLevels, std::memory_order_relaxed);
    return true;
}

void LogProxyImpl::FlushDebugInfo() {
    LogProxyDebugInfoBufMgr* const buffer = LogProxyDebugInfoBufMgr::Instance();
    if (buffer != nullptr) buffer->Output();
}

bool LogProxyImpl::SetDebugOutputMode(int mode) {
    LogProxyDebugInfoBufMgr* const buffer = LogProxyDebugInfoBufMgr::Instance();
    return buffer != nullptr && buffer->SetOutputMode(mode);
}

void LogProxyImpl::SetPosition(const char* file, unsigned long line) {
    m_position.Set(file, line);
}

void LogProxyImpl::SetBundleName(const char* name) {
    m_position.SetBundle(name);
}

void LogProxyImpl::SetServiceName(const char* name) {
    m_position.SetService(name);
}

std::string LogProxyImpl::GetName() const {
    return m_strName;
}

}  // namespace NS_BUNDLEMGR1
