// What the library has written to its log files, for tests that look at all of it.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "support/environment.h"
#include "support/tempdir.h"

namespace test {

/// @return the paths of a directory's files, sorted; none when it is missing
inline std::vector<std::string> FilesIn(const std::string& directory) {
    std::vector<std::string> files;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator(directory, missing)) {
        files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

/// @return the contents of a directory's files, one after the other
inline std::string LogIn(const std::string& directory) {
    std::string log;
    for (const std::string& file : FilesIn(directory)) log += ReadFile(file);
    return log;
}

/// Gives the library's log a directory of its own for the life of a test.
class ScopedLogDir {
public:
    ScopedLogDir() : m_env("_APP_LOG_DIR", m_dir.Path()) {}

    /// Everything that was written to the log files so far.
    std::string Text() const { return LogIn(m_dir / "Develop/nbi/Agent_CORBA"); }

private:
    TempDir m_dir;
    ScopedEnv m_env;
};

}  // namespace test
