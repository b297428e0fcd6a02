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
#include "src/log/recordreader.h"
#include "src/log/recordstamp.h"
#include "src/log/recordview.h"
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

// Where there is no memory for it, the record is lost.
bool Keep(const RecordView& record, RecordBlocks& records) {
    if (records.Append(record)) return true;
    LossCounter::Lost(1, record.time);
    return false;
}

void Lose(const RecordBlocks& records) {
    if (!records.IsEmpty()) LossCounter::Lost(records.Size(), records.FirstTime());
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
      m_bHasKept(false),
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
    m_listKept.Clear();
    m_bHasKept.store(false, std::memory_order_relaxed);
    m_listFiltered.Clear();
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
    TakeEnabled(RecordView(info));
}

void LogProxyDebugInfoBufMgr::AppendFiltered(const DebugInfo& info) {
    TakeDisabled(RecordView(info));
}

void LogProxyDebugInfoBufMgr::Take(const RecordView& record, bool isEnabled) {
    LogProxyDebugInfoBufMgr* const buffer = Prepare();
    if (buffer == nullptr) {
        LossCounter::Lost(1, record.time);
    } else if (isEnabled) {
        buffer->TakeEnabled(record);
    } else {
        buffer->TakeDisabled(record);
    }
}

void LogProxyDebugInfoBufMgr::TakeEnabled(const RecordView& record) {
    if (WritingScope::IsActive()) {
        WritingScope::Buffer()->KeepForNextBatch(record);
        return;
    }
    const Stay stay(this);
    if (stay) {
        stay->Append(record);
    } else {
        LossCounter::Lost(1, record.time);
    }
}

void LogProxyDebugInfoBufMgr::Append(const RecordView& record) {
    // What has been written is freed when no lock is held any more.
    RecordBlocks batch;
    RecordBlocks filtered;
    const detail::Guard guard(m_listMutex);
    // Taken out before they are written: no record is written twice, whatever happens.
    if (m_nOutputMode.load(std::memory_order_relaxed) == LOG_OUTPUT_IMMEDIATE) {
        batch.Swap(m_listOutput);
        WriteList(batch, &record);
        return;
    }
    const bool isKept = Keep(record, m_listOutput);
    if (isKept && record.level == LOG_LEVEL_CRITICAL) {
        batch.Swap(m_listOutput);
        filtered.Swap(m_listFiltered);
        WriteMerged(batch, filtered);
    } else if (m_listOutput.Size() >= m_nOutputCapacity) {
        batch.Swap(m_listOutput);
        WriteCacheFullNotice(WriteList(batch));
    }
}

void LogProxyDebugInfoBufMgr::TakeDisabled(const RecordView& record) {
    if (WritingScope::IsActive()) return;  // its level is switched off, and the lock may be ours
    const Stay stay(this);
    if (!stay) {
        LossCounter::Lost(1, record.time);
        return;
    }
    const detail::Guard guard(stay->m_listMutex);
    if (Keep(record, stay->m_listFiltered) && stay->m_listFiltered.Size() > stay->m_nFilteredCapacity) {
        stay->m_listFiltered.PopFront();
    }
}

void LogProxyDebugInfoBufMgr::Output() {
    if (WritingScope::IsActive()) return;
    const Stay stay(this);
    if (stay) stay->WriteWaiting();
}

void LogProxyDebugInfoBufMgr::WriteWaiting() {
    RecordBlocks batch;
    {
        const detail::Guard guard(m_listMutex);
        batch.Swap(m_listOutput);
    }
    WriteList(batch);
}

// `last` comes after those of the list.
bool LogProxyDebugInfoBufMgr::WriteList(const RecordBlocks& records, const RecordView* last) {
    const detail::Guard guard(m_fileMutex);
    const WritingScope scope(*this);
    if (!m_pLogFile->EnsureOpen()) {
        Lose(records);
        if (last != nullptr) LossCounter::Lost(1, last->time);
        return false;
    }
    WriteKeptRecords();
    for (RecordReader reader(records); reader; reader.Next()) m_pLogFile->WriteRecord(reader.Record());
    if (last != nullptr) m_pLogFile->WriteRecord(*last);
    m_pLogFile->Flush();
    return true;
}

// Both lists as one stream by time; of two records of the same time the enabled one
// goes first.
void LogProxyDebugInfoBufMgr::WriteMerged(const RecordBlocks& enabled, const RecordBlocks& disabled) {
    const detail::Guard guard(m_fileMutex);
    const WritingScope scope(*this);
    if (!m_pLogFile->EnsureOpen()) {
        Lose(enabled);
        Lose(disabled);
        return;
    }
    WriteKeptRecords();
    RecordReader filtered(disabled);
    for (RecordReader output(enabled); output; output.Next()) {
        for (; filtered && filtered.Record().time < output.Record().time; filtered.Next()) {
            m_pLogFile->WriteRecord(filtered.Record());
        }
        m_pLogFile->WriteRecord(output.Record());
    }
    for (; filtered; filtered.Next()) m_pLogFile->WriteRecord(filtered.Record());
    m_pLogFile->Flush();
}

void LogProxyDebugInfoBufMgr::WriteCacheFullNotice(bool hadFile) {
    const RecordThread thread;
    RecordView notice;
    notice.level = LOG_LEVEL_ERROR;
    notice.time = WallClock();
    notice.thread = thread.Text();
    notice.bundle = "debug";
    notice.service = "debug";
    notice.text = "Debug cache is full, force output excuted.";
    const detail::Guard guard(m_fileMutex);
    const WritingScope scope(*this);
    // The batch may have failed at its end; the notice then goes to the next file.
    if (hadFile) m_pLogFile->EnsureOpen();
    m_pLogFile->WriteRecord(notice);
    m_pLogFile->Flush();
}

// One for each batch: if every record caused another one, there would be no end to them.
void LogProxyDebugInfoBufMgr::KeepForNextBatch(const RecordView& record) {
    const detail::Guard guard(m_keptMutex);
    if (m_listKept.IsEmpty()) {
        m_bHasKept.store(Keep(record, m_listKept), std::memory_order_release);
    } else {
        LossCounter::Lost(1, record.time);
    }
}

void LogProxyDebugInfoBufMgr::WriteKeptRecords() {
    if (!m_bHasKept.load(std::memory_order_acquire)) return;
    RecordBlocks kept;
    {
        const detail::Guard guard(m_keptMutex);
        kept.Swap(m_listKept);
        m_bHasKept.store(false, std::memory_order_relaxed);
    }
    for (RecordReader reader(kept); reader; reader.Next()) m_pLogFile->WriteRecord(reader.Record());
}

void LogProxyDebugInfoBufMgr::OpenNewFile() {
    if (WritingScope::IsActive()) return;
    const Stay stay(this);
    if (!stay) return;
    RecordBlocks batch;
    {
        const detail::Guard guard(stay->m_listMutex);
        batch.Swap(stay->m_listOutput);
    }
    if (!batch.IsEmpty()) stay->WriteList(batch);
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
    m_listOutput.Clear();
    m_listFiltered.Clear();
    m_listKept.Clear();
    m_bHasKept.store(false, std::memory_order_relaxed);
    if (m_pLogFile != nullptr) m_pLogFile->LeaveToParent();
}

}  // namespace NS_BUNDLEMGR1
