// The log file on disk.
#pragma once

#include <cstdint>
#include <string>

#include "src/log/recordstamp.h"
#include "src/log/recordstream.h"
#include "src/log/recordview.h"

namespace NS_BUNDLEMGR1 {

/// Writes records into `<directory>/<prefix>_sys_<time>_<pid>.log`, one file at a
/// time, and goes on in a new file when one is full or can no longer be written.
///
/// Files are named by the second in which they were opened: of two that fill up
/// within one second, the second takes the place of the first. A file is created with
/// mode 0640, a directory with 0750, whatever the process's umask. Where something else
/// than a regular file has a file's name, a link say, no file is opened; that is told on
/// standard error, once until a file can be opened again.
///
/// Thread safety: none; its owner serialises the calls.
class LogFile {
public:
    /// @param directory where the files go; one trailing "/" or "\" is dropped. Up to
    ///                  three missing levels are created when a file is opened
    /// @param prefix    what file names begin with
    /// @param maxBytes  size at which a file is full; its last record may exceed it
    /// @param maxFiles  kept for the record; old files are not removed here
    LogFile(const std::string& directory, const std::string& prefix, std::uint64_t maxBytes, std::uint64_t maxFiles);

    /// Closes.
    ~LogFile();

    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    /// Closes the current file and opens the next. Failure leaves none open.
    void OpenNewFile();

    /// Begins a batch: opens a file if none is open, and looks which time zone is set.
    /// @return whether a file is open now
    bool EnsureOpen();

    /// Goes on in the next file. One that would have the present name is no other: the
    /// present file is continued. Does nothing when no file is open.
    void GoOnInNewFile();

    /// Writes one record, or only counts it when no file is open. One that cannot be
    /// written is lost (see `LossCounter`), those that wait behind it go to the next file;
    /// throws nothing.
    void WriteRecord(const RecordView& record);

    /// Brings what was written to the disk. Where that fails, the record that the file refused
    /// is lost and the others go to the next file; when nothing is left, the file is closed,
    /// and the next `EnsureOpen` starts another.
    void Flush();

    /// Flushes, closes the current file and removes it when it is empty.
    void Close();

    /// @name Files that go from hand to hand
    /// @{
    /// @return the current file or, where it could be opened again, the latest one
    const std::string& PathToContinue() const;

    /// A file of this path, when it is the next to be opened, keeps what is in it.
    void ContinueAt(const char* path);

    /// In a forked child: the file is the parent's. Nothing is written to it, nor is it
    /// removed; the next record opens another.
    void LeaveToParent();
    /// @}

private:
    std::string NextPath() const;
    void CreateDirectory() const;
    void ChangeFile();
    void CloseFile();
    bool OpenNext();
    void Open(std::string path);
    static void CloseUnused(int handle, const std::string& path);
    void TellOfObstacle(const std::string& path);
    bool Print(const RecordView& record);
    bool FlushStream();
    void NoteFailure();

    RecordStream m_stream;
    const std::uint64_t m_nMaxBytes;
    [[maybe_unused]] const std::uint64_t m_nMaxFiles;
    std::uint64_t m_nSequence;  // of the latest record, over all files
    const std::string m_strPrefix;
    const std::string m_strDirectory;
    std::string m_strPath;  // of the current file

    bool m_bGaveUp;  // on a record since the last flush
    // A file that failed with records in it, or that a former writer left: opened again in
    // the same second, it is continued, where a full one would be overwritten.
    std::string m_strContinuePath;
    bool m_bToldOfObstacle;  // since a file could be opened
    TimeStampCache m_timeStamps;
};

}  // namespace NS_BUNDLEMGR1
