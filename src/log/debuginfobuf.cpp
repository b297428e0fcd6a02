#include <climits>
#include <cstdio>
#include <exception>
#include <new>
#include <optional>

#include <ace/Guard_T.h>
#include <ace/Object_Manager.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Static_Object_Lock.h>

#include <bundlemgr/base.h>
#include <bundlemgr/log.h>

#include "src/corelog/losscounter.h"
#include "src/corelog/writingscope.h"
#include "src/log/logfile.h"
#include "src/log/recordstamp.h"
#include "src/platform/usegate.h"
#include "src/platform/wallclock.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr char kFilePrefix[] = "pnbi";
constexpr std::uint64_t kMaxFileBytes = 20971520;  // 20 MiB
constexpr std::uint64_t kMaxFiles = 100;
constexpr std::size_t kOutputCapacity = 8192;   // records
constexpr std::size_t kFilteredCapacity = 128;  // records

// The place of the one buffer, for good: Destroy ends what is in it, and a pointer that is
// out of date still leads to an object.
alignas(LogProxyDebugInfoBufMgr) unsigned char g_place[sizeof(LogProxyDebugInfoBufMgr)];

UseGate g_gate;

// Held while a buffer comes or goes; taken after ACE's static-object lock, before the
// locks of the buffer.
detail::Mutex g_lifeMutex;

// Whether the present buffer knows its directory; read without touching the buffer.
std::atomic<bool> g_hasDirectory{false};

// The file of the buffer that was there before, for the next one to continue.
char g_lastPath[PATH_MAX] = "";

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

/// One stay inside a buffer, which does not end meanwhile: the one it is given or, where
/// that is gone, the present one. A thread that is writing records is inside already.
class LogProxyDebugInfoBufMgr::Stay {
public:
    explicit Stay(LogProxyDebugInfoBufMgr* buffer) : m_buffer(buffer) {
        if (WritingScope::IsActive()) {
            m_buffer = WritingScope::Buffer();
            return;
        }
        while (m_buffer != nullptr && !m_use.emplace(g_gate, m_buffer)) m_buffer = Prepare();
        if (m_buffer != nullptr && !m_buffer->EnsureDirectory()) m_buffer = nullptr;
    }

    /// @return null where there is none to be had
    LogProxyDebugInfoBufMgr* Buffer() const { return m_buffer; }

    explicit operator bool() const { return m_buffer != nullptr; }
    LogProxyDebugInfoBufMgr* operator->() const { return m_buffer; }

private:
    std::optional<UseGate::Use> m_use;
    LogProxyDebugInfoBufMgr* m_buffer;
};

// ---- Life ----

LogProxyDebugInfoBufMgr* LogProxyDebugInfoBufMgr::Instance() {
    LogProxyDebugInfoBufMgr* const instance = Prepare();
    if (instance == nullptr || g_hasDirectory.load(std::memory_order_acquire)) return instance;
    return Stay(instance).Buffer();  // which asks for the directory
}

// Not with InstanceOrMake: a fork must not come between the making of a buffer and its being
// known.
LogProxyDebugInfoBufMgr* LogProxyDebugInfoBufMgr::Prepare() {
    if (WritingScope::IsActive()) return WritingScope::Buffer();
    LogProxyDebugInfoBufMgr* const instance = m_pInstance.load(std::memory_order_acquire);
    if (instance != nullptr) return instance;
    ACE_GUARD_RETURN(ACE_Recursive_Thread_Mutex, guard, *ACE_Static_Object_Lock::instance(), m_pInstance.load());
    const detail::Guard life(g_lifeMutex);
    if (m_pInstance.load(std::memory_order_acquire) == nullptr) m_pInstance.store(Create(), std::memory_order_release);
    return m_pInstance.load(std::memory_order_acquire);
}

LogProxyDebugInfoBufMgr* LogProxyDebugInfoBufMgr::Create() {
    static LogProxyDebugInfoBufMgr* s_former = nullptr;
    try {
        if (s_former == nullptr) {
            s_former = new (g_place) LogProxyDebugInfoBufMgr;
        } else {
            g_gate.Open(s_former);
        }
        return s_former;
    } catch (const std::exception&) {
        return nullptr;
    }
}

// The static-object lock stays held while those inside finish: none of them takes it.
void LogProxyDebugInfoBufMgr::Destroy() {
    if (m_pInstance.load(std::memory_order_acquire) == nullptr) {
        const detail::Guard life(g_lifeMutex);  // until a Destroy on another thread is through
        return;
    }
    ACE_GUARD(ACE_Recursive_Thread_Mutex, guard, *ACE_Static_Object_Lock::instance());
    const detail::Guard life(g_lifeMutex);
    LogProxyDebugInfoBufMgr* const instance = m_pInstance.exchange(nullptr);
    if (instance != nullptr) instance->End();
}

LogProxyDebugInfoBufMgr::LogProxyDebugInfoBufMgr()
    : m_bHasDirectory(false),
      m_nOutputCapacity(kOutputCapacity),
      m_nFilteredCapacity(kFilteredCapacity),
      m_nOutputMode(LOG_OUTPUT_IMMEDIATE) {
    g_gate.Open(this);
}

LogProxyDebugInfoBufMgr::~LogProxyDebugInfoBufMgr() {
    End();
}

// Afterwards everything is as it was in the beginning. Once the gate is closed nobody else is
// inside, and no lock is needed.
void LogProxyDebugInfoBufMgr::End() ZO_NO_THREAD_SAFETY_ANALYSIS {
    g_gate.Close(this);
    g_hasDirectory.store(false, std::memory_order_release);
    m_nOutputMode.store(LOG_OUTPUT_IMMEDIATE, std::memory_order_relaxed);
    if (m_pLogFile == nullptr) return;  // nobody has used it
    WriteWaiting();
    Lose(m_listKept);
    m_listKept.clear();
    m_listFiltered.clear();
    std::snprintf(g_lastPath, sizeof g_lastPath, "%s", m_pLogFile->PathToContinue().c_str());
    m_pLogFile.reset();
    m_bHasDirectory.store(false, std::memory_order_release);
}

bool LogProxyDebugInfoBufMgr::EnsureDirectory() {
    if (m_bHasDirectory.load(std::memory_order_acquire)) return true;
    const detail::Guard guard(m_fileMutex);
    if (m_pLogFile != nullptr) return true;
    try {
        auto file = std::make_unique<LogFile>(GetNBILogPath(), kFilePrefix, kMaxFileBytes, kMaxFiles);
        file->ContinueAt(g_lastPath);
        m_pLogFile = std::move(file);
    } catch (const std::exception&) {
        return false;  // the next record tries again
    }
    m_bHasDirectory.store(true, std::memory_order_release);
    g_hasDirectory.store(true, std::memory_order_release);
    return true;
}

// ---- Records ----

bool LogProxyDebugInfoBufMgr::SetOutputMode(const int& mode) {
    if (mode != LOG_OUTPUT_BUFFERED && mode != LOG_OUTPUT_IMMEDIATE) return false;
    const Stay stay(this);
    if (stay) stay->m_nOutputMode.store(mode, std::memory_order_relaxed);
    return static_cast<bool>(stay);
}

void LogProxyDebugInfoBufMgr::AppendOutputInfo(const DebugInfo& info) {
    if (WritingScope::IsActive()) {
        WritingScope::Buffer()->KeepForNextBatch(info);
        return;
    }
    Records record;
    if (!Copy(info, record)) return;  // before any lock is taken
    const Stay stay(this);
    if (stay) {
        stay->Append(record);
    } else {
        Lose(record);
    }
}

void LogProxyDebugInfoBufMgr::Append(Records& record) {
    const int level = record.front().level;
    const detail::Guard guard(m_listMutex);
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
    const Stay stay(this);
    if (!stay) {
        Lose(record);
        return;
    }
    const detail::Guard guard(stay->m_listMutex);
    stay->m_listFiltered.splice(stay->m_listFiltered.end(), record);
    if (stay->m_listFiltered.size() > stay->m_nFilteredCapacity) stay->m_listFiltered.pop_front();
}

void LogProxyDebugInfoBufMgr::Output() {
    if (WritingScope::IsActive()) return;
    const Stay stay(this);
    if (stay) stay->WriteWaiting();
}

void LogProxyDebugInfoBufMgr::WriteWaiting() {
    Records batch;
    {
        const detail::Guard guard(m_listMutex);
        batch.swap(m_listOutput);
    }
    WriteList(batch);
}

bool LogProxyDebugInfoBufMgr::WriteList(const Records& records) {
    const detail::Guard guard(m_fileMutex);
    const WritingScope scope(*this);
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
    const detail::Guard guard(m_fileMutex);
    const WritingScope scope(*this);
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
    notice.time = WallClock();
    try {
        notice.thread = RecordThread();
        notice.bundle = "debug";
        notice.service = "debug";
        notice.text = "Debug cache is full, force output excuted.";
    } catch (const std::exception&) {
        LossCounter::Lost(1, notice.time);
        return;
    }
    const detail::Guard guard(m_fileMutex);
    const WritingScope scope(*this);
    // The batch may have failed at its end; the notice then goes to the next file.
    if (hadFile) m_pLogFile->EnsureOpen();
    m_pLogFile->WriteRecord(notice);
    m_pLogFile->Flush();
}

// One for each batch: if every record caused another one, there would be no end to them.
void LogProxyDebugInfoBufMgr::KeepForNextBatch(const DebugInfo& info) {
    const detail::Guard guard(m_keptMutex);
    if (m_listKept.empty()) {
        Copy(info, m_listKept);
    } else {
        LossCounter::Lost(1, info.time);
    }
}

void LogProxyDebugInfoBufMgr::WriteKeptRecords() {
    Records kept;
    {
        const detail::Guard guard(m_keptMutex);
        kept.swap(m_listKept);
    }
    for (const DebugInfo& info : kept) m_pLogFile->WriteRecord(info);
}

void LogProxyDebugInfoBufMgr::OpenNewFile() {
    if (WritingScope::IsActive()) return;
    const Stay stay(this);
    if (!stay) return;
    Records batch;
    {
        const detail::Guard guard(stay->m_listMutex);
        batch.swap(stay->m_listOutput);
    }
    if (!batch.empty()) stay->WriteList(batch);
    const detail::Guard guard(stay->m_fileMutex);
    const WritingScope scope(*stay.Buffer());
    stay->m_pLogFile->GoOnInNewFile();
}

// ---- Fork ----

// When the child is made, nobody is in the middle of a record, nor of making or ending a
// buffer. The locks stay held until one of the two functions below; those of the buffer are
// among them where there is one.
void LogProxyDebugInfoBufMgr::BeforeFork() ZO_NO_THREAD_SAFETY_ANALYSIS {
    g_lifeMutex.acquire();
    LogProxyDebugInfoBufMgr* const instance = m_pInstance.load(std::memory_order_acquire);
    if (instance != nullptr) instance->LockAll();
    g_gate.BeforeFork();
}

void LogProxyDebugInfoBufMgr::AfterForkInParent() ZO_NO_THREAD_SAFETY_ANALYSIS {
    g_gate.AfterForkInParent();
    LogProxyDebugInfoBufMgr* const instance = m_pInstance.load(std::memory_order_acquire);
    if (instance != nullptr) instance->UnlockAll();
    g_lifeMutex.release();
}

void LogProxyDebugInfoBufMgr::AfterForkInChild() ZO_NO_THREAD_SAFETY_ANALYSIS {
    g_gate.AfterForkInChild();
    LogProxyDebugInfoBufMgr* const instance = m_pInstance.load(std::memory_order_acquire);
    if (instance != nullptr) {
        instance->LeaveToParent();
        instance->UnlockAll();
    }
    LossCounter::Reset();
    g_lifeMutex.release();
}

void LogProxyDebugInfoBufMgr::LockAll() {
    m_listMutex.acquire();
    m_fileMutex.acquire();
    m_keptMutex.acquire();
}

void LogProxyDebugInfoBufMgr::UnlockAll() {
    m_keptMutex.release();
    m_fileMutex.release();
    m_listMutex.release();
}

void LogProxyDebugInfoBufMgr::LeaveToParent() {
    m_listOutput.clear();
    m_listFiltered.clear();
    m_listKept.clear();
    if (m_pLogFile != nullptr) m_pLogFile->LeaveToParent();
}

}  // namespace NS_BUNDLEMGR1
