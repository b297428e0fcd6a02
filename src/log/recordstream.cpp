#include "src/log/recordstream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "src/corelog/losscounter.h"
#include "src/platform/filesizelimit.h"
#include "src/platform/writesignalblock.h"

namespace NS_BUNDLEMGR1 {

namespace {

// A batch costs one system call for each of these.
constexpr std::size_t kBufferSize = 256 * 1024;

// What waits is written then, so that noting where records end needs no more memory.
constexpr std::size_t kMaxUnflushed = 2048;  // records

// Of records that a file refused which takes none.
constexpr std::size_t kLostAtOnce = 64 * 1024;

// Something that is done when the thread is cancelled in a write, which unwinds its stack.
template <class Action>
class OnCancellation {
public:
    explicit OnCancellation(Action action) : m_action(action) {}
    ~OnCancellation() {
        if (!m_isDismissed) m_action();
    }
    OnCancellation(const OnCancellation&) = delete;
    OnCancellation& operator=(const OnCancellation&) = delete;

    void Dismiss() { m_isDismissed = true; }

private:
    const Action m_action;
    bool m_isDismissed = false;
};

// What one write(2) leaves over. A signal may interrupt it. A limit on the size of files takes a
// part of what crosses it and raises its signal for the next write; so one that has just been set
// is noticed in time.
std::size_t WriteRest(int handle, const char* data, std::size_t size, bool isLimitSet) {
    std::optional<WriteSignalBlock> signalBlock;
    std::size_t written = 0;
    while (written < size) {
        if (!signalBlock && (isLimitSet || FileSizeLimit::LookAgain())) signalBlock.emplace();
        const ssize_t n = write(handle, data + written, size - written);
        if (n > 0) {
            written += static_cast<std::size_t>(n);
        } else if (n == 0 || errno != EINTR) {
            break;
        }
    }
    return written;
}

std::size_t WriteAll(int handle, const char* data, std::size_t size) {
    if (size == 0) return 0;
    if (FileSizeLimit::IsSet()) return WriteRest(handle, data, size, true);
    const ssize_t n = write(handle, data, size);
    if (n == 0 || (n < 0 && errno != EINTR)) return 0;
    const std::size_t written = n > 0 ? static_cast<std::size_t>(n) : 0;
    return written == size ? size : written + WriteRest(handle, data + written, size - written, false);
}

std::uint64_t SizeOf(int handle, std::uint64_t otherwise) {
    struct stat status {};
    return fstat(handle, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : otherwise;
}

}  // namespace

RecordStream::RecordStream() : m_buffer(new char[kBufferSize]) {
    m_vecUnflushed.reserve(kMaxUnflushed);
}

RecordStream::~RecordStream() {
    Close();
}

void RecordStream::Open(int handle, std::uint64_t bytes) {
    m_nHandle = handle;
    m_nBytes = bytes + m_nWaiting;
    m_nFlushed = bytes;
    m_bTookAny = false;
}

RecordStream::Taken RecordStream::Write(const RecordFormatter& record, const ACE_Time_Value& time) {
    const std::size_t maxSize = record.MaxSize();
    const bool hasRoom = maxSize <= kBufferSize - m_nWaiting && m_vecUnflushed.size() < kMaxUnflushed;
    if (!hasRoom && !Flush()) return Taken::NotYet;
    std::size_t size = 0;
    if (maxSize <= kBufferSize) {
        char* const begin = m_buffer.get() + m_nWaiting;
        size = static_cast<std::size_t>(record.CopyTo(begin) - begin);
        m_nWaiting += size;
    } else if (!PutAll(record, time, size)) {
        DropPart();
        return Taken::No;
    }
    m_nBytes += size;
    m_vecUnflushed.push_back(Unflushed{size, time});
    return Taken::Yes;
}

// Of a record that may be larger than the buffer.
bool RecordStream::PutAll(const RecordFormatter& record, const ACE_Time_Value& time, std::size_t& size) {
    OnCancellation dropped([this, &time] {
        DropPart();
        LossCounter::Lost(1, time);
    });
    bool isPut = true;
    record.ForEachPiece([this, &isPut, &size](std::string_view piece) {
        size += piece.size();
        isPut = isPut && Put(piece);
    });
    dropped.Dismiss();
    return isPut;
}

bool RecordStream::Put(std::string_view piece) {
    while (!piece.empty()) {
        if (m_nWaiting == kBufferSize && !WriteWaiting()) return false;
        const std::size_t size = std::min(piece.size(), kBufferSize - m_nWaiting);
        std::memcpy(m_buffer.get() + m_nWaiting, piece.data(), size);
        m_nWaiting += size;
        piece.remove_prefix(size);
    }
    return true;
}

bool RecordStream::WriteWaiting() {
    OnCancellation kept([this] { KeepRest(); });
    const bool isWritten = WriteAll(m_nHandle, m_buffer.get(), m_nWaiting) == m_nWaiting;
    kept.Dismiss();
    if (isWritten) m_nWaiting = 0;
    return isWritten;
}

// What the file has not got waits for the next flush.
void RecordStream::KeepRest() {
    const std::uint64_t onDisk = SizeOf(m_nHandle, m_nFlushed);
    const std::size_t written = std::min(m_nWaiting, static_cast<std::size_t>(onDisk - std::min(onDisk, m_nFlushed)));
    KeepLast(m_nWaiting - written);
}

bool RecordStream::Flush() {
    if (!WriteWaiting()) {
        DropRefused();
        return false;
    }
    if (!m_vecUnflushed.empty()) NoteKept();
    m_nFlushed = m_nBytes;
    m_vecUnflushed.clear();
    return true;
}

void RecordStream::NoteKept() {
    m_bTookAny = true;
    LossCounter::Kept();
}

void RecordStream::Close() {
    if (IsOpen()) close(std::exchange(m_nHandle, -1));
}

void RecordStream::LeaveToParent() {
    m_nWaiting = 0;
    m_vecUnflushed.clear();
    Close();
}

void RecordStream::GiveUpWaiting() {
    if (HasWaiting()) LossCounter::Lost(m_vecUnflushed.size(), m_vecUnflushed.front().time);
    m_nWaiting = 0;
    m_vecUnflushed.clear();
}

// Of a large record, before which nothing waited.
void RecordStream::DropPart() {
    m_nWaiting = 0;
    CutBack(SizeOf(m_nHandle, m_nFlushed));
}

void RecordStream::DropRefused() {
    const std::uint64_t onDisk = SizeOf(m_nHandle, m_nFlushed);
    const auto end = m_vecUnflushed.cend();
    auto record = m_vecUnflushed.cbegin();
    for (; record != end && record->size <= onDisk - std::min(onDisk, m_nFlushed); ++record) m_nFlushed += record->size;
    if (record != m_vecUnflushed.cbegin()) NoteKept();
    const auto refused = record;
    std::uint64_t lost = 0;
    for (; record != end && (lost == 0 || (!m_bTookAny && lost < kLostAtOnce)); ++record) lost += record->size;
    if (record != refused) LossCounter::Lost(static_cast<std::uint64_t>(record - refused), refused->time);
    m_vecUnflushed.erase(m_vecUnflushed.cbegin(), record);
    KeepLast(m_nBytes - std::min(m_nBytes, m_nFlushed + lost));
    CutBack(onDisk);
}

// Of what waits.
void RecordStream::KeepLast(std::uint64_t bytes) {
    const std::size_t kept = std::min(m_nWaiting, static_cast<std::size_t>(bytes));
    std::memmove(m_buffer.get(), m_buffer.get() + m_nWaiting - kept, kept);
    m_nWaiting = kept;
}

// To the last record that the file has whole. Where half a record cannot be cut off, it stays. The
// file may go on to be used.
void RecordStream::CutBack(std::uint64_t onDisk) {
    m_nBytes = m_nFlushed;
    const auto end = static_cast<off_t>(m_nBytes);
    if (onDisk > m_nBytes && ftruncate(m_nHandle, end) == 0) lseek(m_nHandle, end, SEEK_SET);
}

}  // namespace NS_BUNDLEMGR1
