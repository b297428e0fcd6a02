// Text, path and file helpers, and the time stamp of log records.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>

#include <bundlemgr/base.h>

#include "src/corelog/corelog.h"
#include "src/platform/bounded.h"
#include "src/platform/calendar.h"
#include "src/platform/openfile.h"
#include "src/platform/text.h"

namespace NS_BUNDLEMGR1 {

namespace {

CoreLog g_log("basefacade");

// A time stamp: the zone's name, " 2024-03-01 08:05:09.000042" and a NUL.
constexpr std::size_t kMaxZoneLength = 64;
constexpr std::size_t kMaxTimeLength = 31;
constexpr std::size_t kTimeStampBufferSize = 97;

constexpr mode_t kDirectoryMode = 0750;

// The classifiers of <cctype> ask the locale.
bool IsOctalDigit(char c) {
    return c >= '0' && c <= '7';
}

bool IsDecimalDigit(char c) {
    return c >= '0' && c <= '9';
}

bool IsHexDigit(char c) {
    return IsDecimalDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// Whether `text` from `begin` on is one integer literal without a sign.
bool IsUnsignedLiteral(const std::string& text, std::size_t begin) {
    const auto restIs = [&text](std::size_t from, bool (*isDigit)(char)) {
        return std::all_of(text.begin() + static_cast<std::ptrdiff_t>(from), text.end(), isDigit);
    };
    const std::size_t length = text.size() - begin;
    if (length == 0) return false;
    if (text[begin] != '0') return restIs(begin, IsDecimalDigit);
    if (length > 1 && text[begin + 1] == 'x') return length > 2 && restIs(begin + 2, IsHexDigit);
    return restIs(begin, IsOctalDigit);
}

/// Removes the first "/.." together with the segment before it, until there is none. A
/// text that is copied from its front meets the first one first, so one pass is enough.
/// @return false for a "/.." without a "/" before it
bool FoldParentSegments(std::string& path) {
    std::string folded;
    folded.reserve(path.size());
    for (const char c : path) {
        folded += c;
        if (!EndsWith(folded, "/..")) continue;
        folded.resize(folded.size() - 3);
        const std::size_t segment = folded.rfind('/');
        if (segment == std::string::npos) return false;
        folded.resize(segment);
    }
    path = folded;
    return true;
}

/// Replaces each "/./" by "/", also those that only this brings about.
void FoldSelfSegments(std::string& path) {
    std::string folded;
    folded.reserve(path.size());
    for (const char c : path) {
        folded += c;
        if (EndsWith(folded, "/./")) folded.resize(folded.size() - 2);
    }
    path = folded;
}

bool IsDirectory(const struct stat& status) {
    return S_ISDIR(status.st_mode);
}

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using DirectoryHandle = std::unique_ptr<DIR, CloseDirectory>;

/// The names in an open directory, less "." and "..".
std::vector<std::string> ReadNames(DIR* directory) {
    std::vector<std::string> names;
    // Not readdir_r: it is deprecated, since a name may be longer than its buffer,
    // and needless, since readdir shares nothing between two streams.
    while (const dirent* const entry = readdir(directory)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    return names;
}

/// A directory that is being removed, and the one that led to it.
struct Visit {
    dev_t device;
    ino_t inode;
    const Visit* outer;
};

/// Links are followed, so a directory may turn up below itself. It is being emptied
/// already then, and is passed over: with two links to "." each level would take twice
/// the time, up to the system's limit of 40 links.
bool IsUnderRemoval(const struct stat& status, const Visit* visit) {
    for (; visit != nullptr; visit = visit->outer) {
        if (visit->device == status.st_dev && visit->inode == status.st_ino) return true;
    }
    return false;
}

void RemoveDirectory(const std::string& path, bool removeSelf, const Visit* outer) {
    std::vector<std::string> names;
    Visit visit{0, 0, outer};
    {
        // Closed before anything is removed: a deep tree does not run out of file
        // descriptors, and no entry is missed because others vanish meanwhile.
        const DirectoryHandle directory(opendir(path.c_str()));
        if (directory == nullptr) return;
        struct stat status {};
        if (fstat(dirfd(directory.get()), &status) == 0) visit = Visit{status.st_dev, status.st_ino, outer};
        names = ReadNames(directory.get());
    }

    for (const std::string& name : names) {
        const std::string entry = path + "/" + name;
        struct stat status {};
        if (stat(entry.c_str(), &status) != 0) continue;
        if (!IsDirectory(status)) {
            unlink(entry.c_str());
        } else if (!IsUnderRemoval(status, &visit)) {
            RemoveDirectory(entry, true, &visit);
        }
        rmdir(entry.c_str());
    }
    if (removeSelf) rmdir(path.c_str());
}

/// @return the local time; without a zone, and zero throughout, where the year is
///         beyond what the C library can express
std::tm LocalTime(std::time_t seconds) {
    std::tm local{};
    if (Calendar::LocalTime(seconds, local) != nullptr) return local;
    local = std::tm{};
    local.tm_isdst = -1;
    return local;
}

}  // namespace

std::string RTrim(const std::string& text) {
    return std::string(RightTrimmedView(text));
}

std::string LTrim(const std::string& text) {
    return std::string(LeftTrimmedView(text));
}

std::string Trim(const std::string& text) {
    return std::string(TrimmedView(text));
}

std::string DelTabStr(const std::string& text) {
    std::string result;
    result.reserve(text.size());
    std::remove_copy(text.begin(), text.end(), std::back_inserter(result), '\t');
    return result;
}

void Str2StrVec(const char* text, char separator, std::vector<std::string>& out) {
    std::string_view rest = text != nullptr ? text : "";
    std::string_view field;
    while (TakeField(rest, separator, field)) out.emplace_back(field);
}

bool Str2Int(const std::string& text, int& value) {
    const std::string literal = Trim(text);
    const std::size_t body = !literal.empty() && literal.front() == '-' ? 1 : 0;
    if (!IsUnsignedLiteral(literal, body)) return false;
    value = static_cast<int>(std::strtoul(literal.c_str(), nullptr, 0));
    return true;
}

void ConvertBackslash(std::string& path) {
    path.erase(path.find_last_not_of(' ') + 1);
    path.erase(0, path.find_first_not_of(' '));
    std::replace(path.begin(), path.end(), '\\', '/');
}

bool ConvertAbsolutePath(std::string& path) {
    ConvertBackslash(path);
    if (path.empty() || path.front() == '.') return false;
    if (!FoldParentSegments(path)) return false;
    FoldSelfSegments(path);
    return true;
}

std::string GetParentPath(const std::string& path) {
    std::string parent = path;
    if (!ConvertAbsolutePath(parent)) return "";
    if (!parent.empty() && parent.back() == '/') parent.pop_back();
    // Nothing is left where there is no "/".
    parent.erase(parent.rfind('/') + 1);
    return parent;
}

bool IsExistDir(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

void RemoveDir(const std::string& path, bool removeSelf) {
    RemoveDirectory(path, removeSelf, nullptr);
}

void ReCreateDir(const std::string& path) {
    // A link leads nowhere once its directory is gone, so what it leads to is also the place
    // to make the new one.
    const std::string resolved = ResolvePath(path);
    if (!resolved.empty() && IsExistDir(resolved)) RemoveDir(resolved, true);
    MakeDirectory(resolved.empty() ? path : resolved, kDirectoryMode);
}

void DeleteFile(const std::string& path) {
    struct stat status {};
    if (IsExistDir(path) && stat(path.c_str(), &status) == 0 && !IsDirectory(status)) unlink(path.c_str());
}

void RemoveFilesList(const std::list<std::string>& files) {
    for (const std::string& file : files) unlink(file.c_str());
}

std::string GetZoneTimeStamp(const ACE_Time_Value& t) {
    const std::tm local = LocalTime(t.sec());
    char text[kTimeStampBufferSize] = {};
    if (Calendar::Format(text, kMaxZoneLength + 1, "%Z", local) == 0 &&
        strncpy_s(text, sizeof text, "Unknown Time Zone", kMaxZoneLength) != 0) {
        g_log.Print(__LINE__, LOG_LEVEL_ERROR, "strncpy_s failed.");
    }
    const std::size_t zone = strnlen(text, kMaxZoneLength);
    // A long: 1900 more than the last years that localtime_r knows would not fit into an int.
    if (snprintf_s(text + zone, sizeof text - zone, kMaxTimeLength, " %4.4ld-%2.2d-%2.2d %2.2d:%2.2d:%2.2d.%06ld",
                   local.tm_year + 1900L, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                   static_cast<long>(t.usec())) < 0) {
        g_log.Print(__LINE__, LOG_LEVEL_ERROR, "snprintf_s failed.");
    }
    std::string converted;
    Convert2UTFforLog(text, converted);
    return converted;
}

}  // namespace NS_BUNDLEMGR1
