#include "feedfollower.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace alarms {

namespace {

constexpr std::size_t kChunk = 64 * 1024;

}  // namespace

FeedFollower::FeedFollower(std::string file, Reader& reader) : m_file(std::move(file)), m_reader(reader) {}

FeedFollower::~FeedFollower() {
    Close();
}

void FeedFollower::Poll() {
    if (m_handle == -1 && !Open()) return;
    if (IsCutBack()) {
        m_reader.Notice("was cut back, reading it from its beginning");
        Restart();
        lseek(m_handle, 0, SEEK_SET);
    }
    // Asked first: whatever went into the old file before the new one took its name is
    // then in what is read next.
    const bool replaced = IsReplaced();
    ReadToEnd();
    if (!replaced || m_reader.Stopping()) return;
    if (!m_line.empty() || m_tooLong) EndLine();
    Close();
    m_reader.Notice("was replaced by a new file");
    if (Open()) ReadToEnd();
}

bool FeedFollower::Open() {
    // Not blocking, so that a pipe in the file's place does not hold the thread for ever.
    m_handle = open(m_file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status {};
    int error = 0;
    if (m_handle == -1 || fstat(m_handle, &status) == -1) {
        error = errno;
    } else if (!S_ISREG(status.st_mode)) {
        error = EINVAL;
    }
    if (error != 0) {
        Close();
        if (!m_missingReported) m_reader.Notice(std::string("cannot be read yet: ") + std::strerror(error));
        m_missingReported = true;
        return false;
    }
    m_missingReported = false;
    Restart();
    m_reader.Notice("is being followed");
    return true;
}

void FeedFollower::Close() {
    if (m_handle != -1) close(m_handle);
    m_handle = -1;
}

void FeedFollower::Restart() {
    m_offset = 0;
    m_number = 0;
    m_line.clear();
    m_tooLong = false;
}

bool FeedFollower::IsCutBack() const {
    struct stat opened {};
    return fstat(m_handle, &opened) == 0 && opened.st_size < m_offset;
}

bool FeedFollower::IsReplaced() const {
    struct stat opened {};
    struct stat named {};
    // Without a file of that name the writer is in the middle of replacing it.
    if (fstat(m_handle, &opened) == -1 || stat(m_file.c_str(), &named) == -1) return false;
    return opened.st_dev != named.st_dev || opened.st_ino != named.st_ino;
}

void FeedFollower::ReadToEnd() {
    std::string chunk(kChunk, '\0');
    while (!m_reader.Stopping()) {
        const ssize_t count = read(m_handle, &chunk[0], chunk.size());
        if (count == -1 && errno == EINTR) continue;
        if (count <= 0) return;
        m_offset += count;
        Take(chunk.data(), static_cast<std::size_t>(count));
    }
}

void FeedFollower::Take(const char* data, std::size_t size) {
    const char* const end = data + size;
    while (data != end) {
        const char* const lineEnd =
            static_cast<const char*>(std::memchr(data, '\n', static_cast<std::size_t>(end - data)));
        const char* const pieceEnd = lineEnd != nullptr ? lineEnd : end;
        if (!m_tooLong) m_line.append(data, pieceEnd);
        if (m_line.size() > kMaxLine) {
            m_tooLong = true;
            m_line.clear();
        }
        if (lineEnd == nullptr) return;
        EndLine();
        data = lineEnd + 1;
    }
}

void FeedFollower::EndLine() {
    ++m_number;
    if (m_tooLong) {
        m_reader.TooLong(m_number);
    } else {
        m_reader.Line(m_number, m_line);
    }
    m_line.clear();
    m_tooLong = false;
}

}  // namespace alarms
