#include "src/platform/openfile.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NS_BUNDLEMGR1 {

namespace {

// Opening a FIFO or a terminal waits for nobody and takes nothing over.
constexpr int kAtOnce = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr int kWritten = O_WRONLY | O_NOFOLLOW | kAtOnce;
constexpr mode_t kInheritedBits = S_ISUID | S_ISGID | S_ISVTX;

int CloseAndFail(int handle, int error) {
    close(handle);
    errno = error;
    return -1;
}

mode_t KindOf(int handle) {
    struct stat status {};
    return fstat(handle, &status) == 0 ? status.st_mode & S_IFMT : 0;
}

// A process that was started without standard output would print into the first file that
// it opens.
int AwayFromStandardStreams(int handle) {
    if (handle == -1 || handle > STDERR_FILENO) return handle;
    const int elsewhere = fcntl(handle, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (elsewhere == -1) return handle;
    close(handle);
    return elsewhere;
}

// The umask may have taken bits away, but none are there too many at any time.
int Create(const std::string& path, int flags, mode_t mode) {
    const int handle = open(path.c_str(), kWritten | O_CREAT | O_EXCL | flags, mode);
    if (handle != -1) fchmod(handle, mode);
    return handle;
}

int OpenExisting(const std::string& path, int flags) {
    const int handle = open(path.c_str(), kWritten | flags, 0);
    if (handle == -1 || KindOf(handle) == S_IFREG) return handle;
    return CloseAndFail(handle, ENXIO);
}

void SetModeOfNewDirectory(int handle, mode_t mode) {
    struct stat status {};
    if (fstat(handle, &status) != 0 || status.st_uid != geteuid()) return;
    fchmod(handle, mode | (status.st_mode & kInheritedBits));
}

}  // namespace

std::string ResolvePath(const std::string& path) {
    char resolved[PATH_MAX];
    // Where realpath fails the buffer may hold a part of the path: not what was asked for.
    return realpath(path.c_str(), resolved) != nullptr ? resolved : "";
}

InputStream OpenForReading(const std::string& path) {
    const int handle = open(path.c_str(), O_RDONLY | kAtOnce, 0);
    if (handle == -1) return nullptr;
    const mode_t kind = KindOf(handle);
    const bool isReadable = kind == S_IFREG || kind == S_IFDIR;
    std::FILE* const stream = isReadable ? fdopen(handle, "r") : nullptr;
    if (stream == nullptr) CloseAndFail(handle, isReadable ? errno : ENXIO);
    return InputStream(stream);
}

int OpenForWriting(const std::string& path, int flags, mode_t mode) {
    int handle = Create(path, flags, mode);
    if (handle == -1 && errno == EEXIST) handle = OpenExisting(path, flags);
    return AwayFromStandardStreams(handle);
}

void MakeDirectory(const std::string& path, mode_t mode) {
    if (mkdir(path.c_str(), mode) != 0) return;
    const int handle = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | kAtOnce, 0);
    if (handle == -1) {
        // The umask left not even its owner the right to open it.
        if (errno != EACCES) return;
        [[maybe_unused]] const int ignored = fchmodat(AT_FDCWD, path.c_str(), mode, AT_SYMLINK_NOFOLLOW);
        return;
    }
    SetModeOfNewDirectory(handle, mode);
    close(handle);
}

}  // namespace NS_BUNDLEMGR1
