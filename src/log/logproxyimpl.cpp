#include "src/log/logproxyimpl.h"

#include <cstddef>
#include <exception>

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

// Threads that log through different proxies mostly take different ones.
constexpr std::size_t kPositionMutexes = 16;
constexpr std::size_t kCacheLine = 64;

struct alignas(kCacheLine) PositionMutex {
    detail::Mutex mutex;
};

PositionMutex g_positionMutexes[kPositionMutexes];
std::atomic<std::size_t> g_proxies{0};  // made so far

detail::Mutex& NextPositionMutex() {
    return g_positionMutexes[g_proxies.fetch_add(1, std::memory_order_relaxed) % kPositionMutexes].mutex;
}

// Compared as unsigned, so that a negative level is out of range as well.
bool IsValidLevel(int level) {
    return static_cast<unsigned>(level) <= kMaxLevel;
}

std::uint64_t LevelBit(int level) {
    return std::uint64_t{1} << static_cast<unsigned>(level);
}

}  // namespace

LogProxyImpl::LogProxyImpl(const std::string& name)
    : m_strName(name), m_nLine(0), m_nLevelMask(kAllLevels), m_bEcho(true), m_positionMutex(NextPositionMutex()) {}

LogProxyImpl::~LogProxyImpl() = default;

void LogProxyImpl::Write(int level, const char* text) {
    WriteAt(nullptr, level, text != nullptr ? text : "");
}

// Without a position, the record has that of the proxy.
void LogProxyImpl::WriteAt(const Position* position, int level, std::string_view text) {
    RecordView record;
    record.level = IsValidLevel(level) ? level : LOG_LEVEL_INFO;
    record.time = WallClock();
    record.thread = RecordThread::OfThisThread().Text();
    record.text = text;
    RecordSource source;
    const bool isMade = TakeSource(position, source, record);
    if (m_bEcho) PrintOutText(text);
    if (isMade) {
        LogProxyDebugInfoBufMgr::Take(record, IsLevelEnabled(record.level));
    } else {
        LossCounter::Lost(1, record.time);
    }
}

// False where there is no memory for it.
bool LogProxyImpl::TakeSource(const Position* position, RecordSource& source, RecordView& record) {
    const detail::Guard guard(m_positionMutex);
    const std::string_view file = position != nullptr ? std::string_view(position->file) : m_strFileName;
    if (!source.Take(m_strBundleName, m_strServiceName, file)) return false;
    record.source = source.Text();
    record.line = position != nullptr ? position->line : m_nLine;
    return true;
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
    const Position position{file != nullptr ? file : "", line};
    char buffer[kFormatBufferSize];
    if (!Format(buffer, format, args)) WriteAt(&position, LOG_LEVEL_ERROR, kFormatFailed);
    WriteAt(&position, level, buffer);
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
    const detail::Guard guard(m_positionMutex);
    Replace(m_strFileName, file);
    m_nLine = line;
}

void LogProxyImpl::SetBundleName(const char* name) {
    const detail::Guard guard(m_positionMutex);
    Replace(m_strBundleName, name);
}

void LogProxyImpl::SetServiceName(const char* name) {
    const detail::Guard guard(m_positionMutex);
    Replace(m_strServiceName, name);
}

// Without memory the text becomes empty: the former one would be wrong.
void LogProxyImpl::Replace(std::string& text, const char* newText) {
    try {
        text.assign(newText != nullptr ? newText : "");
    } catch (const std::exception&) {
        text.clear();
    }
}

std::string LogProxyImpl::GetName() const {
    return m_strName;
}

// All of them stay held until AfterFork; the analysis does not follow a loop.
void LogProxyImpl::BeforeFork() ZO_NO_THREAD_SAFETY_ANALYSIS {
    for (PositionMutex& position : g_positionMutexes) position.mutex.acquire();
}

void LogProxyImpl::AfterFork() ZO_NO_THREAD_SAFETY_ANALYSIS {
    for (PositionMutex& position : g_positionMutexes) position.mutex.release();
}

}  // namespace NS_BUNDLEMGR1
