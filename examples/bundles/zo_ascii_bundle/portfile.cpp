#include "portfile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace alarms {

namespace {

constexpr mode_t kMode = 0644;
constexpr int kNoSurprise = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

/// The descriptor of a regular file; -1: there is none.
class RegularFile {
public:
    RegularFile(const std::string& path, int flags) : m_handle(open(path.c_str(), flags | kNoSurprise, kMode)) {
        struct stat status {};
        if (m_handle == -1 || (fstat(m_handle, &status) == 0 && S_ISREG(status.st_mode))) return;
        close(m_handle);
        m_handle = -1;
    }
    ~RegularFile() {
        if (m_handle != -1) close(m_handle);
    }
    RegularFile(const RegularFile&) = delete;
    RegularFile& operator=(const RegularFile&) = delete;

    int Handle() const { return m_handle; }

    /// @return false when not all of it could be written
    bool Close() { return close(std::exchange(m_handle, -1)) == 0; }

private:
    int m_handle;
};

bool WriteAll(int handle, const std::string& text) {
    for (std::size_t written = 0; written < text.size();) {
        const ssize_t count = write(handle, text.data() + written, text.size() - written);
        if (count == -1 && errno == EINTR) continue;
        if (count <= 0) return false;
        written += static_cast<std::size_t>(count);
    }
    return true;
}

// 0 when there is no file with a port.
int PortIn(const std::string& path) {
    const RegularFile file(path, O_RDONLY);
    char text[16] = "";
    if (file.Handle() == -1 || read(file.Handle(), text, sizeof text - 1) <= 0) return 0;
    return std::atoi(text);  // NOLINT(cert-err34-c): 0 for what is no number
}

bool WriteFile(const std::string& path, int port) {
    RegularFile file(path, O_WRONLY | O_CREAT);
    if (file.Handle() == -1 || ftruncate(file.Handle(), 0) != 0) return false;
    const bool written = WriteAll(file.Handle(), std::to_string(port) + "\n");
    return file.Close() && written;  // a full disk may show as late as now
}

}  // namespace

bool PortFile::Write(int port) {
    const std::string partial = m_path + ".new";
    if (!WriteFile(partial, port) || std::rename(partial.c_str(), m_path.c_str()) != 0) {
        std::remove(partial.c_str());
        return false;
    }
    m_port = port;
    return true;
}

void PortFile::Remove() {
    if (m_port != 0 && PortIn(m_path) == m_port) std::remove(m_path.c_str());
    m_port = 0;
}

}  // namespace alarms
