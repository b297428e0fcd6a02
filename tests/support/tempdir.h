// A directory of its own for one test, removed with everything in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

#include <unistd.h>

namespace test {

/// A death test, or anything else that is a process of a test's, may end at any moment, and
/// its directory would stay. So the directory of a child has the name of that of the process
/// which began the test with something behind it, and that process removes both.
class TempDir {
public:
    TempDir() {
        const std::string outer = OuterOfAnotherProcess();
        std::string name = outer.empty() ? (std::filesystem::temp_directory_path() / "zo_test_").string() : outer + ".";
        name += "XXXXXX";
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed: " + name);
        m_path = std::filesystem::canonical(name).string();
        m_isOuter = std::getenv(kOuter) == nullptr;
        if (m_isOuter) setenv(kOuter, (std::to_string(getpid()) + ":" + m_path).c_str(), 1);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
        if (!m_isOuter) return;
        unsetenv(kOuter);
        RemoveThoseOfChildren();
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

    /// Writes a file below the directory, with the directories above it.
    std::string Write(const std::string& name, const std::string& content) const {
        const std::string file = *this / name;
        std::filesystem::create_directories(std::filesystem::path(file).parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

private:
    /// Variable with the process that began the test and its directory, "4711:/tmp/...".
    static constexpr char kOuter[] = "ZO_TEST_OUTER";

    /// "" in the process that began the test.
    static std::string OuterOfAnotherProcess() {
        const char* const value = std::getenv(kOuter);
        const std::string outer = value != nullptr ? value : "";
        const std::string own = std::to_string(getpid()) + ":";
        return outer.rfind(own, 0) == 0 ? "" : outer.substr(outer.find(':') + 1);
    }

    void RemoveThoseOfChildren() const {
        std::error_code ignored;
        const std::filesystem::path parent = std::filesystem::path(m_path).parent_path();
        for (std::filesystem::directory_iterator entry(parent, ignored), end; !ignored && entry != end;
             entry.increment(ignored)) {
            std::error_code inUse;
            const std::string path = entry->path().string();
            if (path.rfind(m_path + ".", 0) == 0) std::filesystem::remove_all(path, inUse);
        }
    }

    std::string m_path;
    bool m_isOuter = false;
};

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace test
