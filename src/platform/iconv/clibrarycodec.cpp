#include "src/platform/iconv/clibrarycodec.h"

#include <cerrno>
#include <mutex>

#include <iconv.h>
#include <pthread.h>

#include "src/platform/iconv/iconv.h"

#ifdef _LIBICONV_VERSION
#error "GNU libiconv's iconv.h is found, its library is not: install both or neither"
#endif

static_assert(sizeof(wchar_t) == 4, "the C library's wide characters are code points");

namespace NS_BUNDLEMGR1 {

namespace {

// Opening and closing take a lock of the C library's that it does not release in a forked
// child. Nobody of ours is inside when the process forks.
std::mutex g_openMutex;  // plain, for these sources also make a libiconv of their own

const struct ForkHandlers {
    ForkHandlers() { pthread_atfork(&Lock, &Unlock, &Unlock); }
    static void Lock() { g_openMutex.lock(); }
    static void Unlock() { g_openMutex.unlock(); }
} g_forkHandlers;

}  // namespace

CLibraryHandle::CLibraryHandle(const char* to, const char* from) : m_handle(NoIconv()) {
    const std::lock_guard<std::mutex> guard(g_openMutex);
    m_handle = iconv_open(to, from);
}

CLibraryHandle::~CLibraryHandle() {
    if (!IsOpen()) return;
    const std::lock_guard<std::mutex> guard(g_openMutex);
    iconv_close(m_handle);
}

bool CLibraryHandle::IsOpen() const {
    return m_handle != NoIconv();
}

int CLibraryHandle::Convert(const void* in, std::size_t& inLeft, void* out, std::size_t& outLeft) {
    char* inNext = static_cast<char*>(const_cast<void*>(in));
    char* outNext = static_cast<char*>(out);
    return iconv(m_handle, &inNext, &inLeft, &outNext, &outLeft) == static_cast<std::size_t>(-1) ? errno : 0;
}

CLibraryDecoder::CLibraryDecoder(const char* codeSet) : m_handle("WCHAR_T", codeSet) {}

Decoded CLibraryDecoder::Next(const unsigned char* in, std::size_t left) {
    // Room for one character makes the C library stop behind it.
    wchar_t character = 0;
    std::size_t room = sizeof character;
    std::size_t unread = left;
    const int error = m_handle.Convert(in, unread, &character, room);
    const std::size_t length = left - unread;
    if (room == 0) return Character(static_cast<std::uint32_t>(character), length);
    if (length > 0) return Nothing(length);
    return error == EILSEQ ? Invalid(1) : Incomplete();
}

CLibraryEncoder::CLibraryEncoder(const char* codeSet) : m_handle(codeSet, "WCHAR_T") {}

std::ptrdiff_t CLibraryEncoder::Put(std::uint32_t codePoint, unsigned char* out, std::size_t room) {
    const wchar_t character = static_cast<wchar_t>(codePoint);
    std::size_t unread = sizeof character;
    std::size_t left = room;
    const int error = m_handle.Convert(&character, unread, out, left);
    if (error != 0) return error == E2BIG ? kNoRoom : kUnrepresentable;
    return static_cast<std::ptrdiff_t>(room - left);
}

}  // namespace NS_BUNDLEMGR1
