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
#include "src/log/recordsource.h"
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

// What is in that place, once there has been a buffer; guarded by g_lifeMutex.
LogProxyDebugInfoBufMgr* g_placed = nullptr;

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

// Calls `take` with a record as it goes to the file: each of its texts ends at its first NUL.
template <class Take>
void View(const DebugInfo& info, Take take) {
    RecordSource room;
    const std::string_view source = room.Take(info.bundle.c_str(), info.service.c_str(), info.file.c_str());
    if (source.empty()) {
        LossCounter::Lost(1, info.time);
        return;
    }
    take(RecordView{info.level, info.time, info.thread.c_str(), source, info.line, info.text.c_str()});
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
        if (m_buffer != nullptr && !m_buffer->HasDirectory() && !m_buffer->MakeFile()) m_buffer = nullptr;
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
    try {
        if (g_placed == nullptr) {
            g_placed = new (g_place) LogProxyDebugInfoBufMgr;
        } else {
            g_placed->Open();
        }
        return g_placed;
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
      m_bIsOpen(false),
      m_nOutputCapacity(kOutputCapacity),
      m_nFilteredCapacity(kFilteredCapacity),
      m_nOutputMode(LOG_OUTPUT_IMMEDIATE) {
    Open();
}

LogProxyDebugInfoBufMgr::~LogProxyDebugInfoBufMgr() {
    End();
}

// In this order, and ended in the other one: whoever has passed the gate finds the buffer open.
void LogProxyDebugInfoBufMgr::Open() {
    {
        const detail::Guard guard(m_listMutex);
        m_bIsOpen = true;
    }
    g_gate.Open(this);
}

// Those who are inside have passed the gate, or have the list lock.
void LogProxyDebugInfoBufMgr::Close() {
    g_gate.Close(this);
    const detail::Guard guard(m_listMutex);
    m_bIsOpen = false;
}

// Afterwards everything is as it was in the beginning. Nobody else is inside any more, and no lock
// is needed.
void LogProxyDebugInfoBufMgr::End() ZO_NO_THREAD_SAFETY_ANALYSIS {
    Close();
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

bool LogProxyDebugInfoBufMgr::MakeFile() {
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
    View(info, [this](const RecordView& record) { TakeEnabled(record); });
}

void LogProxyDebugInfoBufMgr::AppendFiltered(const DebugInfo& info) {
    View(info, [this](const RecordView& record) { TakeDisabled(record); });
}

// The one buffer's place is there for good. So a record of an enabled level need not pass the gate:
// it finds the buffer open, or not, when it has the list lock.
void LogProxyDebugInfoBufMgr::Take(const RecordView& record, bool isEnabled) {
    LogProxyDebugInfoBufMgr* buffer = m_pInstance.load(std::memory_order_acquire);
    const bool isPlaced = static_cast<void*>(buffer) == g_place;
    if (isEnabled && isPlaced && !WritingScope::IsActive() && buffer->Append(record)) return;
    buffer = Prepare();
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
    if (!stay || !stay->Append(record)) LossCounter::Lost(1, record.time);
}

// False where the buffer is not open, or does not know its directory.
bool LogProxyDebugInfoBufMgr::Append(const RecordView& record) {
    // What has been written is freed when no lock is held any more.
    RecordBlocks batch;
    RecordBlocks filtered;
    const detail::Guard guard(m_listMutex);
    if (!m_bIsOpen || !HasDirectory()) return false;
    // Taken out before they are written: no record is written twice, whatever happens.
    if (m_nOutputMode.load(std::memory_order_relaxed) == LOG_OUTPUT_IMMEDIATE) {
        if (!m_listOutput.IsEmpty()) batch.Swap(m_listOutput);
        WriteList(batch, &record);
        return true;
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
    return true;
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
    if (m_bHasKept.load(std::memory_order_acquire)) WriteKeptRecords();
    if (!records.IsEmpty()) WriteEach(records);
    if (last != nullptr) m_pLogFile->WriteRecord(*last);
    m_pLogFile->Flush();
    return true;
}

void LogProxyDebugInfoBufMgr::WriteEach(const RecordBlocks& records) {
    for (RecordReader reader(records); reader; reader.Next()) m_pLogFile->WriteRecord(reader.Record());
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
    if (m_bHasKept.load(std::memory_order_acquire)) WriteKeptRecords();
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
    RecordSource room;
    RecordView notice;
    notice.level = LOG_LEVEL_ERROR;
    notice.time = WallClock();
    notice.thread = RecordThread::OfThisThread().Text();
    notice.source = room.Take("debug", "debug", "");
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
    RecordBlocks kept;
    {
        const detail::Guard guard(m_keptMutex);
        kept.Swap(m_listKept);
        m_bHasKept.store(false, std::memory_order_relaxed);
    }
    WriteEach(kept);
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
// among them, also when it has ended: somebody may be finding that out.
void LogProxyDebugInfoBufMgr::BeforeFork() ZO_NO_THREAD_SAFETY_ANALYSIS {
    g_lifeMutex.acquire();
    if (g_placed != nullptr) g_placed->LockAll();
    g_gate.BeforeFork();
}

void LogProxyDebugInfoBufMgr::AfterForkInParent() ZO_NO_THREAD_SAFETY_ANALYSIS {
    g_gate.AfterForkInParent();
    if (g_placed != nullptr) g_placed->UnlockAll();
    g_lifeMutex.release();
}

void LogProxyDebugInfoBufMgr::AfterForkInChild() ZO_NO_THREAD_SAFETY_ANALYSIS {
    g_gate.AfterForkInChild();
    if (g_placed != nullptr) {
        g_placed->LeaveToParent();
        g_placed->UnlockAll();
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
