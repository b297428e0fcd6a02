#include "src/log/logfile.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bundlemgr/base.h>

#include "src/corelog/losscounter.h"
#include "src/platform/calendar.h"
#include "src/platform/filesizelimit.h"
#include "src/platform/openfile.h"
#include "src/platform/standardoutput.h"
#include "src/platform/text.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr mode_t kDirectoryMode = 0750;
constexpr mode_t kFileMode = 0640;

// Like realpath, but for a path whose last levels do not exist yet.
std::string Resolve(const std::string& path) {
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    const std::filesystem::path resolved = std::filesystem::weakly_canonical(absolute, error);
    return error ? path : resolved.string();
}

bool IsThereButNoFile(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

}  // namespace

LogFile::LogFile(const std::string& directory, const std::string& prefix, std::uint64_t maxBytes,
                 std::uint64_t maxFiles)
    : m_nMaxBytes(maxBytes),
      m_nMaxFiles(maxFiles),
      m_nSequence(0),
      m_strPrefix(prefix),
      m_strDirectory(WithoutTrailingSeparator(directory)),
      m_bGaveUp(false),
      m_bToldOfObstacle(false) {}

LogFile::~LogFile() {
    Close();
}

bool LogFile::EnsureOpen() {
    m_timeStamps.LookAtZone();
    if (!m_stream.IsOpen()) OpenNewFile();
    return m_stream.IsOpen();
}

void LogFile::OpenNewFile() {
    if (m_stream.IsOpen() && !m_stream.Flush()) NoteFailure();
    ChangeFile();
}

// What waits goes along. Tried twice where memory is short: the rest of a batch may depend on it.
void LogFile::ChangeFile() {
    CloseFile();
    if (!OpenNext()) OpenNext();
    if (!m_stream.IsOpen()) m_stream.GiveUpWaiting();
}

// False for want of memory only.
bool LogFile::OpenNext() {
    try {
        std::string path = NextPath();
        CreateDirectory();
        Open(std::move(path));
        return m_stream.IsOpen() || errno != ENOMEM;
    } catch (const std::exception&) {
        return false;
    }
}

void LogFile::GoOnInNewFile() {
    if (!m_stream.IsOpen()) return;
    ContinueAt(m_strPath.c_str());
    OpenNewFile();
}

const std::string& LogFile::PathToContinue() const {
    return m_strPath.empty() ? m_strContinuePath : m_strPath;
}

void LogFile::ContinueAt(const char* path) {
    m_strContinuePath = path;
}

void LogFile::LeaveToParent() {
    m_stream.LeaveToParent();
    m_strPath.clear();
}

std::string LogFile::NextPath() const {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    Calendar::LocalTime(now, local);
    char stamp[32] = "";
    Calendar::Format(stamp, sizeof(stamp), "%Y%m%d_%H%M%S", local);
    return m_strDirectory + "/" + m_strPrefix + "_sys_" + stamp + "_" + std::to_string(getpid()) + ".log";
}

// Up to three missing levels; where the log directory is already there, or cannot be
// made, opening the file will tell.
void LogFile::CreateDirectory() const {
    const std::string directory = Resolve(m_strDirectory);
    const std::string parent = GetParentPath(directory);
    MakeDirectory(GetParentPath(parent), kDirectoryMode);
    MakeDirectory(parent, kDirectoryMode);
    MakeDirectory(directory, kDirectoryMode);
}

void LogFile::Open(std::string path) {
    const bool continued = path == m_strContinuePath;
    m_strContinuePath.reserve(path.size());  // no memory is needed when it fails one day
    const int handle = OpenForWriting(path, continued ? O_APPEND : 0, kFileMode);
    if (handle == -1) {
        const int reason = errno;
        TellOfObstacle(path);
        errno = reason;
        return;
    }
    m_bToldOfObstacle = false;
    FileSizeLimit::LookAgain();
    struct stat status {};
    if (continued ? fstat(handle, &status) != 0 : ftruncate(handle, 0) != 0) {
        CloseUnused(handle, path);
        return;
    }
    m_stream.Open(handle, static_cast<std::uint64_t>(status.st_size));
    m_strPath = std::move(path);
    m_strContinuePath.clear();
}

// Like a file that is closed, one without records is removed.
void LogFile::CloseUnused(int handle, const std::string& path) {
    const int reason = errno;
    struct stat status {};
    const bool isEmpty = fstat(handle, &status) == 0 && status.st_size == 0;
    close(handle);
    if (isEmpty) std::remove(path.c_str());
    errno = reason;
}

// Records that find no file are lost without a message, but nobody could guess this reason
// for it.
void LogFile::TellOfObstacle(const std::string& path) {
    if (m_bToldOfObstacle || !IsThereButNoFile(path)) return;
    m_bToldOfObstacle = true;
    PrintError("The log file %s is not a regular file and gets no records. Remove it.\n", path.c_str());
}

void LogFile::WriteRecord(const RecordView& record) {
    ++m_nSequence;
    if (!m_stream.IsOpen() || !Print(record)) {
        LossCounter::Lost(1, record.time);
        return;
    }
    if (m_stream.Bytes() >= m_nMaxBytes) OpenNewFile();
}

// False where the record is not in the stream.
bool LogFile::Print(const RecordView& record) {
    const std::string* timeStamp = nullptr;
    try {
        timeStamp = &m_timeStamps.Get(record.time);
    } catch (const std::exception&) {
        return false;  // no memory, and no fault of the file
    }
    const RecordFormatter formatted(m_nSequence, *timeStamp, record);
    RecordStream::Taken taken = m_stream.Write(formatted, record.time);
    while (taken != RecordStream::Taken::Yes) {
        NoteFailure();
        ChangeFile();
        if (taken == RecordStream::Taken::No || !m_stream.IsOpen()) return false;
        taken = m_stream.Write(formatted, record.time);
    }
    return true;
}

// Where nothing is left for it, the next file is opened with the next record, not here: while the
// disk is full it would stay behind empty, like the one that is opened after a record has failed.
void LogFile::Flush() {
    while (m_stream.IsOpen() && !FlushStream()) {
        if (m_stream.HasWaiting()) {
            ChangeFile();
        } else {
            CloseFile();
        }
    }
    m_bGaveUp = false;
}

// False where the file is better closed.
bool LogFile::FlushStream() {
    if (!m_stream.Flush()) {
        NoteFailure();
        return false;
    }
    return m_stream.Bytes() > 0 || !m_bGaveUp;
}

void LogFile::Close() {
    Flush();
    CloseFile();
}

void LogFile::CloseFile() {
    if (!m_stream.IsOpen()) return;
    const bool isEmpty = m_stream.Bytes() == 0;
    m_stream.Close();
    if (isEmpty) std::remove(m_strPath.c_str());
    m_strPath.clear();
}

void LogFile::NoteFailure() {
    if (m_stream.Bytes() > 0) m_strContinuePath = m_strPath;
    m_bGaveUp = true;
}

}  // namespace NS_BUNDLEMGR1
