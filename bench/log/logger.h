// What the log benchmark asks of each logging library.
#pragma once

#include <memory>
#include <string>

namespace bench {

enum class LogMode {
    Immediate,  ///< A record has reached the kernel when the call returns.
    Buffered,   ///< Records are collected, and written by who fills the buffer.
    Async       ///< Records are collected, and written by a thread of the library.
};

/// A log that is open. Each record carries the time to the microsecond, the thread, the level, a
/// name, the source position and the text. Thread-safe where the library is.
class Logger {
public:
    virtual ~Logger() = default;

    /// @param text ends with no line end
    virtual void Write(const char* text) = 0;

    /// Returns when all records have reached the kernel.
    virtual void Drain() = 0;
};

/// @param directory where the files go; it exists
using MakeLogger = std::unique_ptr<Logger> (*)(const std::string& directory, LogMode mode);

std::unique_ptr<Logger> MakeOurs(const std::string& directory, LogMode mode);
std::unique_ptr<Logger> MakeSpdlog(const std::string& directory, LogMode mode);
std::unique_ptr<Logger> MakeLog4cplus(const std::string& directory, LogMode mode);
std::unique_ptr<Logger> MakeGlog(const std::string& directory, LogMode mode);
std::unique_ptr<Logger> MakeBoostLog(const std::string& directory, LogMode mode);
std::unique_ptr<Logger> MakePoco(const std::string& directory, LogMode mode);

}  // namespace bench
