#include "src/platform/standardoutput.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include <stdio_ext.h>

#include "src/platform/writesignalblock.h"

namespace NS_BUNDLEMGR1 {

namespace {

// Longer texts are formatted straight into the stream.
constexpr std::size_t kTextBufferSize = 1024;

class KeptErrno {
public:
    KeptErrno() : m_errno(errno) {}
    ~KeptErrno() { errno = m_errno; }
    KeptErrno(const KeptErrno&) = delete;
    KeptErrno& operator=(const KeptErrno&) = delete;

private:
    const int m_errno;
};

// So that nobody fills the buffer between the look at it and the print.
class StreamLock {
public:
    explicit StreamLock(std::FILE* stream) : m_stream(stream) { flockfile(stream); }
    ~StreamLock() { funlockfile(m_stream); }
    StreamLock(const StreamLock&) = delete;
    StreamLock& operator=(const StreamLock&) = delete;

private:
    std::FILE* const m_stream;
};

#ifdef __GLIBC__
constexpr int kPutting = 0x800;  // the C library's own name for it is private

// How much the stream merely copies. Its counters of <stdio_ext.h> do not tell: after a setvbuf,
// the C library may write though there is room.
std::ptrdiff_t RoomFor(std::FILE* stream, std::string_view text) {
    if (stream->_mode >= 0) return 0;  // not one of bytes, or not yet
    if (__flbf(stream) == 0) return stream->_IO_write_end - stream->_IO_write_ptr;
    const bool isPutting = (stream->_flags & kPutting) != 0;
    if (!isPutting || text.find('\n') != std::string_view::npos) return 0;
    return stream->_IO_buf_end - stream->_IO_write_ptr;
}
#endif

// Takes a text that the stream merely copies.
//
// ThreadSanitizer knows nothing of flockfile and would take the prints of two threads for a race.
// It does not see those of the C library itself, mempcpy among them: that serves a program which
// is built with it and uses this library as it is.
bool PutIntoBuffer([[maybe_unused]] std::FILE* stream, [[maybe_unused]] std::string_view text) {
#ifdef __GLIBC__
    if (__freadable(stream) != 0) return false;  // what was read may take room
    if (RoomFor(stream, text) <= static_cast<std::ptrdiff_t>(text.size())) return false;
#ifdef __SANITIZE_THREAD__
    fwrite_unlocked(text.data(), 1, text.size(), stream);
#else
    stream->_IO_write_ptr = static_cast<char*>(mempcpy(stream->_IO_write_ptr, text.data(), text.size()));
#endif
    return true;
#else
    return false;
#endif
}

void PrintText(std::FILE* stream, std::string_view text) {
    if (PutIntoBuffer(stream, text)) return;
    const KeptErrno keptErrno;
    const WriteSignalBlock block;
    fwrite_unlocked(text.data(), 1, text.size(), stream);
}

void PrintFormatted(std::FILE* stream, const char* format, va_list args) {
    const KeptErrno keptErrno;
    char text[kTextBufferSize];
    va_list again;
    va_copy(again, args);
    // The checker loses sight of a va_list that is handed on.
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    const int length = std::vsnprintf(text, sizeof text, format, args);
    const StreamLock lock(stream);
    if (length >= 0 && static_cast<std::size_t>(length) < sizeof text) {
        PrintText(stream, {text, static_cast<std::size_t>(length)});
    } else {
        const WriteSignalBlock block;
        std::vfprintf(stream, format, again);
    }
    va_end(again);
}

// At the end of the process the C library writes what is left, which may be refused, too. This
// library's static objects are destroyed after the program's, so this comes after its last print.
class WrittenAtExit {
public:
    WrittenAtExit() = default;
    ~WrittenAtExit() {
        // Not waited for: its owner may be blocked for good.
        if (ftrylockfile(stdout) != 0) return;
        {
            const WriteSignalBlock block;
            fflush_unlocked(stdout);
        }
        funlockfile(stdout);
    }
    WrittenAtExit(const WrittenAtExit&) = delete;
    WrittenAtExit& operator=(const WrittenAtExit&) = delete;
};

const WrittenAtExit g_writtenAtExit;

}  // namespace

void PrintOut(const char* format, ...) {
    va_list args;
    va_start(args, format);
    PrintFormatted(stdout, format, args);
    va_end(args);
}

void PrintOutText(std::string_view text) {
    const StreamLock lock(stdout);
    PrintText(stdout, text);
}

void PrintError(const char* format, ...) {
    va_list args;
    va_start(args, format);
    PrintFormatted(stderr, format, args);
    va_end(args);
}

}  // namespace NS_BUNDLEMGR1
