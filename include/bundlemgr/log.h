/// @file log.h
/// Logging: named log proxies that write tagged records into rotating files.
///
///     LogProxy* log = BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("Alarm");
///     log->SetBundleName("zo_base_bundle");
///     log->SetServiceName("AlarmSvc");
///     log->SetPosition("alarmsvc", __LINE__);
///     log->Printf(LOG_LEVEL_INFO, "alarm %d raised\n", id);
///
/// Threads that share a proxy may so take each other's position. `zo::Log` with `ZO_INFO` and
/// its like (kit.h) keeps position and text together, in one line.
///
/// A proxy stamps each record with the time, its level, the thread and the names
/// above, and hands it to the process-wide buffer, which writes it to
/// `$_APP_LOG_DIR/Develop/nbi/Agent_CORBA/pnbi_sys_<time>_<pid>.log`.
///
/// Logging throws nothing: a record for which there is no memory, no file or no room on
/// the disk is lost, and counted (`GetLogLoss`). So is one with a text over 512 MiB while the
/// log is buffering.
///
/// A file-size limit (`ulimit -f`) costs records, not the process. One that is lowered while the
/// process runs is noticed within a second, or when a record crosses it; until then a record
/// that begins beyond it ends the process with SIGXFSZ, unless that is blocked or ignored.
///
/// At the end of its life the host calls `LogProxyDebugInfoBufMgr::Destroy`, after
/// `BundleMgr::Destroy`, since the end of the bundles is logged, too. Without it a buffering log
/// loses what still waits.
///
/// A log call may be made under any lock of the library. Signal handlers must not log, nor fork:
/// it takes locks and memory.
///
/// A child made by `fork` may log at once, whatever other threads did in the library at that
/// moment (one that was in the C library's own `localtime` blocks the child's, as ever). Its
/// records go to a file of its own, numbered on from those of its parent; what waited in
/// the parent is left to the parent. A child made by `vfork` must not log.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include <ace/Time_Value.h>

#include <bundlemgr/detail/mutex.h>
#include <bundlemgr/detail/recordblocks.h>
#include <bundlemgr/export.h>

namespace NS_BUNDLEMGR1 {

/// Severity of a record, most severe first. A level above 3, and a negative one,
/// is recorded as `LOG_LEVEL_INFO`.
enum LogLevel : int {
    /// Makes a buffering log write out everything it holds, filtered records included.
    LOG_LEVEL_CRITICAL = 0,
    LOG_LEVEL_ERROR = 1,  ///< Failures.
    LOG_LEVEL_2 = 2,      ///< Free for bundles; the library does not use it.
    LOG_LEVEL_INFO = 3,   ///< Progress and information.
};

/// When records reach the file; see `LogProxy::SetDebugOutputMode`.
enum LogOutputMode : int {
    LOG_OUTPUT_BUFFERED = 0,   ///< Kept in memory and written in batches.
    LOG_OUTPUT_IMMEDIATE = 1,  ///< Written as they arrive (the default).
};

/// One log record.
struct DebugInfo {
    int level = 0;           ///< 0 to 3, see `LogLevel`.
    ACE_Time_Value time;     ///< Wall-clock time of the call, with microseconds.
    std::string thread;      ///< "Thread " and the low 32 bits of `pthread_self()`, signed.
    std::string bundle;      ///< Bundle name of the proxy.
    std::string service;     ///< Service name of the proxy.
    std::string text;        ///< The message.
    std::string file;        ///< Source file name, see `LogProxy::SetPosition`.
    unsigned long line = 0;  ///< Source line.
};

/// A named source of log records.
///
/// Only `GetName` may throw (`std::bad_alloc`).
///
/// Thread safety: every operation may be called from any thread. The position is
/// kept in the proxy and read by the next record, so two threads that share one
/// proxy may take each other's position; the record itself is never torn. `VPrintfAt`
/// takes the position with the text.
///
/// Ownership: a proxy belongs to the library and lives until the process ends.
///
/// The order of the virtual operations is part of the contract with bundles in
/// the field; new ones go to the end.
class ZO_EXPORT LogProxy {
public:
    virtual ~LogProxy();

    /// Records `text`, also printing it on standard output.
    /// @param level severity, see `LogLevel`
    /// @param text  the message; null is recorded as the empty text
    virtual void Write(int level, const char* text) = 0;

    /// Records `text` at `LOG_LEVEL_CRITICAL`.
    /// @param text the message; null is recorded as the empty text
    virtual void WriteText(const char* text) = 0;

    /// Records a message formatted as by `printf`, cut to 4095 bytes.
    /// @param level  severity, see `LogLevel`
    /// @param format printf-style format, followed by its arguments
    virtual void Printf(int level, const char* format, ...) __attribute__((format(printf, 3, 4))) = 0;

    /// `Printf` at `LOG_LEVEL_CRITICAL`.
    /// @param format printf-style format, followed by its arguments
    virtual void PrintfText(const char* format, ...) __attribute__((format(printf, 2, 3))) = 0;

    /// @param level see `LogLevel`
    /// @return whether records of `level` are enabled; false for a level outside 0 to 3
    virtual bool IsLevelEnabled(int level) = 0;

    /// Diverts records of `level` to the ring of filtered records, whose last 128
    /// are written when a critical record arrives while the log is buffering.
    /// @param level see `LogLevel`
    /// @return false, and no change, for a level outside 0 to 3
    virtual bool DisableLevel(int level) = 0;

    /// Undoes `DisableLevel`.
    /// @param level see `LogLevel`
    /// @return false, and no change, for a level outside 0 to 3
    virtual bool EnableLevel(int level) = 0;

    /// Disables levels 0 to 3. @return true
    virtual bool DisableAllLevels() = 0;

    /// Enables levels 0 to 3. @return true
    virtual bool EnableAllLevels() = 0;

    /// Writes out what the process-wide buffer holds, whichever proxy it came from.
    virtual void FlushDebugInfo() = 0;

    /// Sets the output mode of the whole process.
    /// @param mode a `LogOutputMode`
    /// @return false, and no change, for any other value
    virtual bool SetDebugOutputMode(int mode) = 0;

    /// Sets the source position of the following records.
    /// @param file bare name of the source file; null counts as empty
    /// @param line line in it
    virtual void SetPosition(const char* file, unsigned long line) = 0;

    /// Sets the bundle name of the following records; null counts as empty.
    /// @param name the name, copied
    virtual void SetBundleName(const char* name) = 0;

    /// Sets the service name of the following records; null counts as empty.
    /// @param name the name, copied
    virtual void SetServiceName(const char* name) = 0;

    /// @return the name under which the proxy was requested
    virtual std::string GetName() const = 0;

    /// `Printf` of a record with a position of its own, which no other thread can take away
    /// from it. The position of the proxy stays for the other operations. The body here, for
    /// proxies that were written without this operation, uses `SetPosition` and then
    /// `Printf` of the finished text, in which each "%" stands twice.
    /// @param file   bare name of the source file; null counts as empty
    /// @param line   line in it
    /// @param level  severity, see `LogLevel`
    /// @param format printf-style format
    /// @param args   its arguments; used up afterwards
    virtual void VPrintfAt(const char* file, unsigned long line, int level, const char* format, va_list args)
        __attribute__((format(printf, 5, 0)));
};

/// Used where there is no log proxy manager: `Printf` prints its format
/// string, as it stands, on standard output; everything else does nothing.
class ZO_EXPORT DefaultLogProxy : public LogProxy {
public:
    ~DefaultLogProxy() override;
    void Write(int level, const char* text) override;
    void WriteText(const char* text) override;
    void Printf(int level, const char* format, ...) override __attribute__((format(printf, 3, 4)));
    void PrintfText(const char* format, ...) override __attribute__((format(printf, 2, 3)));
    bool IsLevelEnabled(int level) override;
    bool DisableLevel(int level) override;
    bool EnableLevel(int level) override;
    bool DisableAllLevels() override;
    bool EnableAllLevels() override;
    void FlushDebugInfo() override;
    bool SetDebugOutputMode(int mode) override;
    void SetPosition(const char* file, unsigned long line) override;
    void SetBundleName(const char* name) override;
    void SetServiceName(const char* name) override;
    /// @return "DefaultLogProxy"
    std::string GetName() const override;
    /// Prints its format as `Printf` does. A derived class may have a `Printf` that does more:
    /// that one gets the position and the text, as from any other proxy.
    void VPrintfAt(const char* file, unsigned long line, int level, const char* format, va_list args) override
        __attribute__((format(printf, 5, 0)));
};

/// Hands out log proxies by name. Thread-safe; whoever holds a pointer to it may use it
/// while the bundle manager that it came from is destroyed, and afterwards.
class ZO_EXPORT LogProxyMgr {
public:
    /// @param name name of the proxy, compared exactly
    /// @return the one proxy of that name, created on the first request with all
    ///         levels enabled; never null; owned by the library and valid until
    ///         the process ends, also after the manager is gone
    /// @throws std::logic_error when `name` is null
    virtual LogProxy* GetLogProxy(const char* name) = 0;

    virtual ~LogProxyMgr();
};

/// Records that did not reach a log file.
struct LogLoss {
    /// Lost since the process began; in a forked child, since that was made. Records of
    /// disabled levels count only where there was no memory to keep them at all, not when
    /// nobody asked for them in time.
    unsigned long long records = 0;
    /// When the present loss began: the time of the first record lost after the last one
    /// that was written. Zero while records are kept.
    ACE_Time_Value since;
};

/// @return how many records were lost, and since when. The log itself does not tell of
///         lost records. Thread-safe
ZO_EXPORT LogLoss GetLogLoss();

class LogFile;

/// The process-wide sink of all log records and the owner of the log file.
///
/// Immediate mode writes each record as it arrives. Buffered mode keeps up to 8192
/// records and writes them in one batch; a record of level 0 writes out everything
/// at once, merged by time with the last 128 records of disabled levels.
///
/// Thread safety: everything may be called from any thread. `Destroy` is meant for the
/// end, but may come while others log: it waits for those who are inside, and whoever
/// comes later, also through a pointer that `Instance` returned before, has a new buffer,
/// in immediate mode and with records numbered from 1.
class ZO_EXPORT LogProxyDebugInfoBufMgr {
public:
    /// @return the one buffer, created on the first call with the log directory of
    ///         that moment (`GetNBILogPath`); null only when ACE's static-object lock
    ///         cannot be taken or there is no memory
    static LogProxyDebugInfoBufMgr* Instance();

    /// Writes the waiting records, closes the file (an empty one is removed) and ends the
    /// buffer. Does nothing when there is none; while another thread does this, returns
    /// when that is done. Records that a new buffer writes within the same second go to
    /// the end of the same file.
    ///
    /// A part of the life cycle: the last thing that a host does with the library.
    static void Destroy();

    /// @param mode a `LogOutputMode`; takes effect with the next record
    /// @return false, and no change, for any other value
    bool SetOutputMode(const int& mode);

    /// Takes a record of an enabled level.
    /// @param info the record, copied
    void AppendOutputInfo(const DebugInfo& info);

    /// Takes a record of a disabled level into the ring of the 128 latest ones.
    /// @param info the record, copied
    void AppendFiltered(const DebugInfo& info);

    /// Writes and forgets the waiting records, opening the file if none is open.
    void Output();

    /// Goes on in a new log file, as after the file was moved away; waiting records go to
    /// the old one first. Within the second in which that was opened, the new one would
    /// have its name: then it is continued. Without an open file there is nothing to do.
    void OpenNewFile();

    LogProxyDebugInfoBufMgr(const LogProxyDebugInfoBufMgr&) = delete;
    LogProxyDebugInfoBufMgr& operator=(const LogProxyDebugInfoBufMgr&) = delete;

    virtual ~LogProxyDebugInfoBufMgr();

protected:
    LogProxyDebugInfoBufMgr();

    static std::atomic<LogProxyDebugInfoBufMgr*> m_pInstance;

private:
    friend class CoreLog;
    friend class LogFork;
    friend class LogProxyImpl;

    class Stay;

    /// Does what `Instance` does under ACE's static-object lock, for a thread that may
    /// write the first record where it cannot take that. Leaves the log directory for
    /// `Instance` to ask for.
    static LogProxyDebugInfoBufMgr* Prepare();
    static LogProxyDebugInfoBufMgr* Create();
    /// Takes a record of an enabled or a disabled level into the present buffer.
    static void Take(const RecordView& record, bool isEnabled);
    static void BeforeFork();
    static void AfterForkInParent();
    static void AfterForkInChild();

    void Open() ZO_EXCLUDES(m_listMutex);
    void Close() ZO_EXCLUDES(m_listMutex);
    void End();
    bool HasDirectory() const { return m_bHasDirectory.load(std::memory_order_acquire); }
    bool MakeFile();
    void TakeEnabled(const RecordView& record);
    void TakeDisabled(const RecordView& record);
    bool Append(const RecordView& record) ZO_EXCLUDES(m_listMutex, m_fileMutex);
    void WriteWaiting() ZO_EXCLUDES(m_listMutex, m_fileMutex);
    bool WriteList(const RecordBlocks& records, const RecordView* last = nullptr) ZO_EXCLUDES(m_fileMutex);
    void WriteMerged(const RecordBlocks& enabled, const RecordBlocks& disabled) ZO_EXCLUDES(m_fileMutex);
    void WriteCacheFullNotice(bool hadFile) ZO_EXCLUDES(m_fileMutex);
    void KeepForNextBatch(const RecordView& record) ZO_EXCLUDES(m_keptMutex);
    void WriteEach(const RecordBlocks& records) ZO_REQUIRES(m_fileMutex);
    void WriteKeptRecords() ZO_REQUIRES(m_fileMutex);
    void LockAll() ZO_ACQUIRE(m_listMutex, m_fileMutex, m_keptMutex);
    void UnlockAll() ZO_RELEASE(m_listMutex, m_fileMutex, m_keptMutex);
    void LeaveToParent() ZO_REQUIRES(m_listMutex, m_fileMutex, m_keptMutex);

    RecordBlocks m_listOutput ZO_GUARDED_BY(m_listMutex);
    RecordBlocks m_listFiltered ZO_GUARDED_BY(m_listMutex);
    detail::ThreadMutex m_listMutex ZO_ACQUIRED_BEFORE(m_fileMutex);
    detail::ThreadMutex m_fileMutex ZO_ACQUIRED_BEFORE(m_keptMutex);
    std::unique_ptr<LogFile> m_pLogFile ZO_GUARDED_BY(m_fileMutex);  ///< Null until `m_bHasDirectory`.
    std::atomic<bool> m_bHasDirectory;
    std::atomic<bool> m_bHasKept;  ///< Changed under `m_keptMutex`.
    bool m_bIsOpen ZO_GUARDED_BY(m_listMutex);
    const std::size_t m_nOutputCapacity;
    const std::size_t m_nFilteredCapacity;
    std::atomic<int> m_nOutputMode;
    detail::ThreadMutex m_keptMutex;
    RecordBlocks m_listKept ZO_GUARDED_BY(m_keptMutex);  ///< Records that the writing itself has caused.
};

}  // namespace NS_BUNDLEMGR1
