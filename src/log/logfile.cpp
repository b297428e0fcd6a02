#include "src/log/logfile.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <exception>
#include <filesystem>
#include <optional>
#include <utility>

#include <ace/OS_NS_stdio.h>
#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bundlemgr/base.h>

#include "src/corelog/losscounter.h"
#include "src/platform/calendar.h"
#include "src/platform/filesizelimit.h"
#include "src/platform/openfile.h"
#include "src/platform/standardoutput.h"
#include "src/platform/text.h"
#include "src/platform/writesignalblock.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr mode_t kDirectoryMode = 0750;
constexpr mode_t kFileMode = 0640;

// The default buffer would cost a system call for each 4 KiB of a batch.
constexpr std::size_t kStreamBufferSize = 64 * 1024;

// The stream is flushed then, so that noting where records end needs no more memory.
constexpr std::size_t kMaxUnflushed = 1024;  // records

// Like realpath, but for a path whose last levels do not exist yet.
std::string Resolve(const std::string& path) {
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    const std::filesystem::path resolved = std::filesystem::weakly_canonical(absolute, error);
    return error ? path : resolved.string();
}

// The C library's own write would give up a whole buffer when a signal interrupts it. A limit
// on the size of files takes a part of what crosses it and raises its signal for the next
// write; so one that has just been set is noticed in time.
ssize_t WriteAll(void* cookie, const char* data, std::size_t size) {
    const int handle = *static_cast<const int*>(cookie);
    std::optional<WriteSignalBlock> signalBlock;
    if (FileSizeLimit::IsSet()) signalBlock.emplace();
    std::size_t written = 0;
    while (written < size) {
        const ssize_t n = write(handle, data + written, size - written);
        if (n > 0) {
            written += static_cast<std::size_t>(n);
        } else if (n == 0 || errno != EINTR) {
            break;
        }
        if (written < size && !signalBlock && FileSizeLimit::LookAgain()) signalBlock.emplace();
    }
    return static_cast<ssize_t>(written);
}

int CloseHandle(void* cookie) {
    return close(*static_cast<const int*>(cookie));
}

bool IsThereButNoFile(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

}  // namespace

LogFile::LogFile(const std::string& directory, const std::string& prefix, std::uint64_t maxBytes,
                 std::uint64_t maxFiles)
    : m_pStream(nullptr),
      m_nHandle(-1),
      m_nBytes(0),
      m_nMaxBytes(maxBytes),
      m_nMaxFiles(maxFiles),
      m_nSequence(0),
      m_strPrefix(prefix),
      m_strDirectory(WithoutTrailingSeparator(directory)),
      m_nFlushed(0),
      m_bGaveUp(false),
      m_bToldOfObstacle(false),
      m_streamBuffer(kStreamBufferSize) {
    m_vecUnflushed.reserve(kMaxUnflushed);
}

LogFile::~LogFile() {
    Close();
}

bool LogFile::EnsureOpen() {
    if (m_pStream == nullptr) OpenNewFile();
    return m_pStream != nullptr;
}

// Twice where memory is short: the rest of a batch may depend on it.
void LogFile::OpenNewFile() {
    Close();
    if (!OpenNext()) OpenNext();
}

// False for want of memory only.
bool LogFile::OpenNext() {
    try {
        std::string path = NextPath();
        CreateDirectory();
        Open(std::move(path));
        return m_pStream != nullptr || errno != ENOMEM;
    } catch (const std::exception&) {
        return false;
    }
}

void LogFile::GoOnInNewFile() {
    if (m_pStream == nullptr) return;
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
    if (m_pStream == nullptr) return;
    __fpurge(m_pStream);
    std::fclose(m_pStream);
    m_pStream = nullptr;
    Forget();
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
    m_nHandle = OpenForWriting(path, continued ? O_APPEND : 0, kFileMode);
    if (m_nHandle == -1) {
        TellOfObstacle(path);
        return;
    }
    m_bToldOfObstacle = false;
    FileSizeLimit::LookAgain();
    if (continued || ftruncate(m_nHandle, 0) == 0) {
        m_pStream = fopencookie(&m_nHandle, "w", {nullptr, WriteAll, nullptr, CloseHandle});
    }
    if (m_pStream == nullptr) {
        CloseUnused(path);
        return;
    }
    std::setvbuf(m_pStream, m_streamBuffer.data(), _IOFBF, m_streamBuffer.size());
    m_strPath = std::move(path);
    m_strContinuePath.clear();
    struct stat status {};
    if (continued && fstat(m_nHandle, &status) == 0) m_nBytes = static_cast<std::uint64_t>(status.st_size);
    m_nFlushed = m_nBytes;
}

// Like a file that is closed, one without records is removed.
void LogFile::CloseUnused(const std::string& path) const {
    const int reason = errno;
    struct stat status {};
    const bool isEmpty = fstat(m_nHandle, &status) == 0 && status.st_size == 0;
    close(m_nHandle);
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

void LogFile::WriteRecord(const DebugInfo& info) {
    ++m_nSequence;
    if (m_pStream == nullptr || !Print(info)) {
        LossCounter::Lost(1, info.time);
        return;
    }
    m_vecUnflushed.push_back(Unflushed{m_nBytes, info.time});
    const bool isFull = m_nBytes >= m_nMaxBytes;
    if (isFull || (m_vecUnflushed.size() == kMaxUnflushed && !FlushStream())) OpenNewFile();
}

// False where the record is not in the stream.
bool LogFile::Print(const DebugInfo& info) {
    const std::string* timeStamp = nullptr;
    try {
        timeStamp = &m_timeStamps.Get(info.time);
    } catch (const std::exception&) {
        return false;  // no memory, and no fault of the file
    }
    const unsigned long sequence = m_nSequence;
    const int written = ACE_OS::fprintf(
        m_pStream, "<%lu>\n%s, %s, Level = %d, Bundle = %s, Service = %s \nfilename = %s, lineno = %lu\n%s\n</%lu>\n\n",
        sequence, timeStamp->c_str(), info.thread.c_str(), info.level, info.bundle.c_str(), info.service.c_str(),
        info.file.c_str(), info.line, info.text.c_str(), sequence);
    if (written > 0) {
        m_nBytes += static_cast<std::uint64_t>(written);
        return true;
    }
    GiveUpUnwritten();
    OpenNewFile();
    return false;
}

void LogFile::Flush() {
    if (m_pStream != nullptr && !FlushStream()) Close();
    m_bGaveUp = false;
}

// False where the file is better closed. The next one is opened with the next record,
// not here: while the disk is full it would stay behind empty, like the one that is opened
// after a record has failed.
bool LogFile::FlushStream() {
    if (std::fflush(m_pStream) != 0) {
        GiveUpUnwritten();
        return false;
    }
    CountKept();
    return m_nBytes > 0 || !m_bGaveUp;
}

void LogFile::CountKept() {
    if (!m_vecUnflushed.empty()) LossCounter::Kept();
    m_nFlushed = m_nBytes;
    m_vecUnflushed.clear();
}

void LogFile::Close() {
    if (m_pStream == nullptr) return;
    if (std::fflush(m_pStream) == 0) {
        CountKept();
    } else {
        GiveUpUnwritten();
    }
    std::fclose(m_pStream);
    m_pStream = nullptr;
    if (m_nBytes == 0) std::remove(m_strPath.c_str());
    Forget();
}

// Drops what the stream still holds and cuts the file back to whole records.
void LogFile::GiveUpUnwritten() {
    __fpurge(m_pStream);
    std::clearerr(m_pStream);
    struct stat status {};
    if (fstat(m_nHandle, &status) != 0) status.st_size = static_cast<off_t>(m_nFlushed);
    const auto onDisk = static_cast<std::uint64_t>(status.st_size);
    const auto lost = std::find_if(m_vecUnflushed.begin(), m_vecUnflushed.end(),
                                   [onDisk](const Unflushed& record) { return record.end > onDisk; });
    if (lost != m_vecUnflushed.begin()) {
        m_nFlushed = (lost - 1)->end;
        LossCounter::Kept();
    }
    if (lost != m_vecUnflushed.end()) {
        LossCounter::Lost(static_cast<std::uint64_t>(m_vecUnflushed.end() - lost), lost->time);
    }
    m_nBytes = m_nFlushed;
    m_vecUnflushed.clear();
    // Where half a record cannot be cut off, it stays.
    [[maybe_unused]] const bool isCut = onDisk <= m_nBytes || ftruncate(m_nHandle, static_cast<off_t>(m_nBytes)) == 0;
    if (m_nBytes > 0) m_strContinuePath = m_strPath;
    m_bGaveUp = true;
}

void LogFile::Forget() {
    m_strPath.clear();
    m_nBytes = 0;
    m_nFlushed = 0;
    m_vecUnflushed.clear();
}

}  // namespace NS_BUNDLEMGR1
