// Readers of the key=value configuration files.
#include <cstdio>

#include <bundlemgr/base.h>

#include "src/corelog/corelog.h"
#include "src/platform/bounded.h"
#include "src/platform/openfile.h"

namespace NS_BUNDLEMGR1 {

namespace {

CoreLog g_log("basefacade");

constexpr std::size_t kLineBufferSize = 1024;

/// Reads one line, or the next 1023 bytes of a longer one, up to its first NUL.
/// @return false at the end of the file and on a read error
bool ReadLine(std::FILE* stream, std::string& line) {
    char buffer[kLineBufferSize];
    if (memset_s(buffer, sizeof buffer, 0, sizeof buffer) != 0) {
        g_log.Print(__LINE__, LOG_LEVEL_ERROR, "memset_s failed.");
    }
    if (std::fgets(buffer, static_cast<int>(sizeof buffer), stream) == nullptr) return false;
    line = buffer;
    return true;
}

std::string Clean(const std::string& text) {
    return DelTabStr(Trim(text));
}

void AppendKeyValue(std::vector<NameValueStru>& out, const std::string& line) {
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) return;
    out.push_back({Clean(line.substr(0, equals)), Clean(line.substr(equals + 1))});
}

}  // namespace

bool GetAllCfgFrmFile(std::vector<NameValueStru>& out, const std::string& file, bool keyValue) {
    const InputStream stream = OpenForReading(ResolvePath(file));
    if (stream == nullptr) return false;

    std::string line;
    while (ReadLine(stream.get(), line)) {
        line = Trim(line);
        if (line.empty() || line.front() == '#') continue;
        if (keyValue) {
            AppendKeyValue(out, line);
        } else {
            out.push_back({"", DelTabStr(line)});
        }
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
    const std::string trimmed = Trim(line);
    const std::size_t equals = trimmed.find('=');
    const std::size_t found = trimmed.find(key);
    const bool holdsKey = equals != std::string::npos && found != std::string::npos && found <= equals;
    value = holdsKey ? Clean(trimmed.substr(equals + 1)) : "";
    return holdsKey;
}

}  // namespace NS_BUNDLEMGR1
