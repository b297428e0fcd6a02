#include <exception>
#include <new>

#include <ace/Guard_T.h>
#include <ace/Object_Manager.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>

#include "bundlemgr/base.h"
#include "bundlemgr/log.h"
#include "log/logfile.h"
#include "log/losscounter.h"
#include "log/recordstamp.h"
#include "log/writingscope.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr char kFilePrefix[] = "pnbi";
constexpr std::uint64_t kMaxFileBytes = 20971520;  // 20 MiB
constexpr std::uint64_t kMaxFiles = 100;
constexpr std::size_t kOutputCapacity = 8192;   // records
constexpr std::size_t kFilteredCapacity = 128;  // records

/// @return false, and the record is lost, where there is no memory
bool Copy(const DebugInfo& info, std::list<DebugInfo>& copy) {
    try {
        copy.push_back(info);
        return true;
    } catch (const std::exception&) {
        LossCounter::Lost(1, info.time);
        return false;
    }
}

void Lose(const std::list<DebugInfo>& records) {
    if (!records.empty()) LossCounter::Lost(records.size(), records.front().time);
}

}  // namespace

std::atomic<LogProxyDebugInfoBufMgr*> LogProxyDebugInfoBufMgr::m_pInstance{nullptr};

LogProxyDebugInfoBufMgr* LogProxyDebugInfoBufMgr::Instance() {
    LogProxyDebugInfoBufMgr* const instance = Prepare();
    return instance != nullptr && instance->EnsureDirectory() ? instance : nullptr;
}

LogProxyDebugInfoBufMgr* LogProxyDebugInfoBufMgr::Prepare() {
    LogProxyDebugInfoBufMgr* instance = m_pInstance.load(std::memory_order_acquire);
    if (instance != nullptr) return instance;
    ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, *ACE_Static_Object_Lock::instance(), m_pInstance.load());
    instance = m_pInstance.load(std::memory_order_acquire);
    if (instance == nullptr) {
        instance = new (std::nothrow) LogProxyDebugInfoBufMgr;
        m_pInstance.store(instance, std::memory_order_release);
    }
    return instance;
}

void LogProxyDebugInfoBufMgr::Destroy() {
    if (m_pInstance.load(std::memory_order_acquire) == nullptr) return;
    ACE_GUARD(ACE_Recursive_Thread_Mutex, guard, *ACE_Static_Object_Lock::instance());
    delete m_pInstance.load(std::memory_order_acquire);
    m_pInstance.store(nullptr, std::memory_order_release);
}

LogProxyDebugInfoBufMgr::LogProxyDebugInfoBufMgr()
    : m_bHasDirectory(false),
      m_nOutputCapacity(kOutputCapacity),
      m_nFilteredCapacity(kFilteredCapacity),
      m_nOutputMode(LOG_OUTPUT_IMMEDIATE) {}

LogProxyDebugInfoBufMgr::~LogProxyDebugInfoBufMgr() {
    if (m_bHasDirectory.load()) Output();  // or nobody has used it
    Lose(m_listKept);
}

bool LogProxyDebugInfoBufMgr::EnsureDirectory() {
    if (m_bHasDirectory.load(std::memory_order_acquire)) return true;
    ACE_Guard<ACE_Thread_Mutex> guard(m_fileMutex);
    if (m_pLogFile != nullptr) return true;
    try {
        m_pLogFile = std::make_unique<LogFile>(GetNBILogPath(), kFilePrefix, kMaxFileBytes, kMaxFiles);
    } catch (const std::exception&) {
        return false;  // the next record tries again
    }
    m_bHasDirectory.store(true, std::memory_order_release);
    return true;
}

bool LogProxyDebugInfoBufMgr::SetOutputMode(const int& mode) {
    if (mode != LOG_OUTPUT_BUFFERED && mode != LOG_OUTPUT_IMMEDIATE) return false;
    m_nOutputMode.store(mode, std::memory_order_relaxed);
    return true;
}

void LogProxyDebugInfoBufMgr::AppendOutputInfo(const DebugInfo& info) {
    if (WritingScope::IsActive()) {
        KeepForNextBatch(info);
        return;
    }
    Records record;
    if (!Copy(info, record)) return;  // before any lock is taken
    Append(record);
}

void LogProxyDebugInfoBufMgr::Append(Records& record) {
    const int level = record.front().level;
    ACE_Guard<ACE_Thread_Mutex> guard(m_listMutex);
    m_listOutput.splice(m_listOutput.end(), record);
    // Taken out before they are written: no record is written twice, whatever happens.
    Records batch;
    if (m_nOutputMode.load(std::memory_order_relaxed) == LOG_OUTPUT_IMMEDIATE) {
        batch.swap(m_listOutput);
        WriteList(batch);
    } else if (level == LOG_LEVEL_CRITICAL) {
        Records filtered;
        batch.swap(m_listOutput);
        filtered.swap(m_listFiltered);
        WriteMerged(batch, filtered);
    } else if (m_listOutput.size() >= m_nOutputCapacity) {
        batch.swap(m_listOutput);
        WriteCacheFullNotice(WriteList(batch));
    }
}

void LogProxyDebugInfoBufMgr::AppendFiltered(const DebugInfo& info) {
    if (WritingScope::IsActive()) return;  // its level is switched off, and the lock may be ours
    Records record;
    if (!Copy(info, record)) return;
    ACE_Guard<ACE_Thread_Mutex> guard(m_listMutex);
    m_listFiltered.splice(m_listFiltered.end(), record);
    if (m_listFiltered.size() > m_nFilteredCapacity) m_listFiltered.pop_front();
}

void LogProxyDebugInfoBufMgr::Output() {
    if (WritingScope::IsActive()) return;
    Records batch;
    {
        ACE_Guard<ACE_Thread_Mutex> guard(m_listMutex);
        batch.swap(m_listOutput);
    }
    WriteList(batch);
}

bool LogProxyDebugInfoBufMgr::WriteList(const Records& records) {
    ACE_Guard<ACE_Thread_Mutex> guard(m_fileMutex);
    const WritingScope scope;
    if (!m_pLogFile->EnsureOpen()) {
        Lose(records);
        return false;
    }
    WriteKeptRecords();
    for (const DebugInfo& info : records) m_pLogFile->WriteRecord(info);
    m_pLogFile->Flush();
    return true;
}

// Both lists as one stream by time; of two records of the same time the enabled one
// goes first.
void LogProxyDebugInfoBufMgr::WriteMerged(const Records& enabled, const Records& disabled) {
    ACE_Guard<ACE_Thread_Mutex> guard(m_fileMutex);
    const WritingScope scope;
    if (!m_pLogFile->EnsureOpen()) {
        Lose(enabled);
        Lose(disabled);
        return;
    }
    WriteKeptRecords();
    auto filtered = disabled.cbegin();
    for (const DebugInfo& info : enabled) {
        for (; filtered != disabled.cend() && filtered->time < info.time; ++filtered) {
            m_pLogFile->WriteRecord(*filtered);
        }
        m_pLogFile->WriteRecord(info);
    }
    for (; filtered != disabled.cend(); ++filtered) m_pLogFile->WriteRecord(*filtered);
    m_pLogFile->Flush();
}

void LogProxyDebugInfoBufMgr::WriteCacheFullNotice(bool hadFile) {
    DebugInfo notice;
    notice.level = LOG_LEVEL_ERROR;
    notice.time = RecordTime();
    try {
        notice.thread = RecordThread();
        notice.bundle = "debug";
        notice.service = "debug";
        notice.text = "Debug cache is full, force output excuted.";
    } catch (const std::exception&) {
        LossCounter::Lost(1, notice.time);
        return;
    }
    ACE_Guard<ACE_Thread_Mutex> guard(m_fileMutex);
    const WritingScope scope;
    // The batch may have failed at its end; the notice then goes to the next file.
    if (hadFile) m_pLogFile->EnsureOpen();
    m_pLogFile->WriteRecord(notice);
    m_pLogFile->Flush();
}

// One a batch: were every record to give birth to another, they would never end.
void LogProxyDebugInfoBufMgr::KeepForNextBatch(const DebugInfo& info) {
    ACE_Guard<ACE_Thread_Mutex> guard(m_keptMutex);
    if (m_listKept.empty()) {
        Copy(info, m_listKept);
    } else {
        LossCounter::Lost(1, info.time);
    }
}

void LogProxyDebugInfoBufMgr::WriteKeptRecords() {
    Records kept;
    {
        ACE_Guard<ACE_Thread_Mutex> guard(m_keptMutex);
        kept.swap(m_listKept);
    }
    for (const DebugInfo& info : kept) m_pLogFile->WriteRecord(info);
}

}  // namespace NS_BUNDLEMGR1
