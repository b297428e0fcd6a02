// The library's log for the life of a test, in a directory of its own.
#pragma once

#include <filesystem>
#include <string>

#include "support/environment.h"
#include "support/tempdir.h"

namespace test {

class CoreLogDir {
public:
    CoreLogDir() : m_env("_APP_LOG_DIR", m_dir.Path()) {}

    /// Everything that was written to the log files so far.
    std::string Text() const {
        std::string text;
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(m_dir / "Develop/nbi/Agent_CORBA", error)) {
            text += ReadFile(entry.path().string());
        }
        return text;
    }

private:
    TempDir m_dir;
    ScopedEnv m_env;
};

inline std::size_t CountOf(const std::string& piece, const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + piece.size())) ++count;
    return count;
}

}  // namespace test
