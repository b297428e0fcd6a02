// Readers of the key=value configuration files.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <bundlemgr/base.h>

#include "src/platform/openfile.h"
#include "src/platform/text.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr std::size_t kMaxPiece = 1023;  // bytes of a line; what follows counts as the next

/// The lines of a file, read a block at a time.
class LineReader {
public:
    explicit LineReader(std::FILE* stream) : m_stream(stream), m_next(m_block), m_end(m_block) {}

    /// @param line one line with its end, or the next 1023 bytes of a longer one, up to the first
    ///             NUL; valid until the next call
    /// @return false at the end of the file and on a read error
    bool Next(std::string_view& line) {
        std::size_t length = PieceLength();
        if (length == 0) {
            Refill();
            length = PieceLength();
        }
        if (length == 0 && std::ferror(m_stream) == 0) length = Left();  // the last line has no end
        if (length == 0) return false;
        line = std::string_view(m_next, strnlen(m_next, length));
        m_next += length;
        return true;
    }

private:
    std::size_t Left() const { return static_cast<std::size_t>(m_end - m_next); }

    /// @return 0 when the block may hold the beginning of a piece only
    std::size_t PieceLength() const {
        const std::size_t most = Left() < kMaxPiece ? Left() : kMaxPiece;
        const void* const end = std::memchr(m_next, '\n', most);
        if (end != nullptr) return static_cast<std::size_t>(static_cast<const char*>(end) - m_next) + 1;
        return most == kMaxPiece ? most : 0;
    }

    /// Reads behind what is left, as long as the end was not met: a file may grow meanwhile.
    void Refill() {
        const std::size_t left = Left();
        std::memmove(m_block, m_next, left);
        m_next = m_block;
        m_end = m_block + left;
        if (std::feof(m_stream) != 0 || std::ferror(m_stream) != 0) return;
        m_end += std::fread(m_block + left, 1, sizeof m_block - left, m_stream);
    }

    std::FILE* const m_stream;
    const char* m_next;
    const char* m_end;
    char m_block[4096] = {};  // callers may have small stacks
};

// A path is resolved only where the system does not open it as it stands, for which it may be too
// long: that takes a system call for each of its directories.
InputStream OpenFile(const std::string& file) {
    InputStream stream = OpenForReading(file);
    if (stream == nullptr && errno != ENXIO) stream = OpenForReading(ResolvePath(file));
    // What is read goes straight into the block of the lines.
    if (stream != nullptr) std::setvbuf(stream.get(), nullptr, _IONBF, 0);
    return stream;
}

std::string Clean(std::string_view text) {
    std::string clean(TrimmedView(text));
    if (clean.find('\t') != std::string::npos) clean = DelTabStr(clean);
    return clean;
}

}  // namespace

bool GetAllCfgFrmFile(std::vector<NameValueStru>& out, const std::string& file, bool keyValue) {
    const InputStream stream = OpenFile(file);
    if (stream == nullptr) return false;

    LineReader lines(stream.get());
    std::string_view line;
    while (lines.Next(line)) {
        line = TrimmedView(line);
        if (line.empty() || line.front() == '#') continue;
        if (!keyValue) {
            out.push_back({"", Clean(line)});
            continue;
        }
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos) continue;
        out.push_back({Clean(line.substr(0, equals)), Clean(line.substr(equals + 1))});
    }
    return true;
}

bool GetValByKey(std::string& value, const std::string& key, const std::vector<NameValueStru>& list) {
    for (const NameValueStru& entry : list) {
        if (entry.name != key) continue;
        value = entry.value;
        return true;
    }
    return false;
}

bool GetCfgInfo(std::string& value, const std::string& key, const std::string& file) {
    std::vector<NameValueStru> list;
    return GetAllCfgFrmFile(list, file, true) && GetValByKey(value, key, list);
}

bool GetKeyAndValFrmStr(std::string& value, const std::string& line, const std::string& key) {
    const std::string_view trimmed = TrimmedView(line);
    const std::size_t equals = trimmed.find('=');
    const std::size_t found = trimmed.find(key);
    const bool holdsKey = equals != std::string_view::npos && found != std::string_view::npos && found <= equals;
    value = holdsKey ? Clean(trimmed.substr(equals + 1)) : "";
    return holdsKey;
}

}  // namespace NS_BUNDLEMGR1
