#include "configlines.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bundlemgr/base.h>

namespace alarms {

namespace {

constexpr std::size_t kLongestLine = 1022;  // that the library reads in one piece

// "" and the content of a regular file, or why there is none.
std::string ReadRegularFile(const std::string& file, std::string& content) {
    // Not blocking, for the sake of a pipe without a writer.
    const int handle = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (handle == -1) return std::strerror(errno);
    struct stat status {};
    std::string trouble;
    if (fstat(handle, &status) == -1) {
        trouble = std::strerror(errno);
    } else if (!S_ISREG(status.st_mode)) {
        trouble = S_ISDIR(status.st_mode) ? std::strerror(EISDIR) : "Not a regular file";
    }
    char piece[4096];
    while (trouble.empty()) {
        const ssize_t count = read(handle, piece, sizeof piece);
        if (count == 0) break;
        if (count > 0) {
            content.append(piece, static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            trouble = std::strerror(errno);
        }
    }
    close(handle);
    return trouble;
}

std::string Fault(const std::string& line) {
    if (line.find('\0') != std::string::npos) return "a NUL byte";
    return line.size() > kLongestLine ? "more than " + std::to_string(kLongestLine) + " bytes" : "";
}

// As the library cleans names and values.
std::string Clean(const std::string& text) {
    return NS_BUNDLEMGR1::DelTabStr(NS_BUNDLEMGR1::Trim(text));
}

}  // namespace

ConfigLines::ConfigLines(const std::string& file) {
    std::string content;
    m_trouble = ReadRegularFile(file, content);
    if (!m_trouble.empty()) return;
    unsigned long number = 0;
    for (std::string::size_type begin = 0; begin < content.size();) {
        const std::string::size_type end = std::min(content.find('\n', begin), content.size());
        Take(++number, content.substr(begin, end - begin));
        begin = end + 1;
    }
}

void ConfigLines::Take(unsigned long number, const std::string& text) {
    ConfigLine line;
    line.number = number;
    line.fault = Fault(text);
    const std::string trimmed = NS_BUNDLEMGR1::Trim(text);
    const bool comment = !trimmed.empty() && trimmed.front() == '#';
    if (line.fault.empty() && (trimmed.empty() || comment)) return;
    const std::string::size_type equals = trimmed.find('=');
    if (!comment && equals != std::string::npos) {
        line.name = Clean(trimmed.substr(0, equals));
        line.value = Clean(trimmed.substr(equals + 1));
    }
    m_lines.push_back(line);
}

std::string StartFile() {
    const char* const directory = std::getenv("_APP_SHARE_DIR");
    return std::string(directory != nullptr ? directory : "") + "/conf/corba_start.cfg";
}

}  // namespace alarms
