// A directory for what a benchmark writes, removed with everything in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace bench {

class Directory {
public:
    Directory() : m_path((std::filesystem::temp_directory_path() / "zo_bench_XXXXXX").string()) {
        if (mkdtemp(m_path.data()) == nullptr) std::abort();
    }
    ~Directory() { std::filesystem::remove_all(m_path); }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

}  // namespace bench
