#include <condition_variable>
#include <mutex>

#include <spdlog/async.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "log/logger.h"

namespace bench {

namespace {

constexpr std::size_t kQueue = 8192;  // records, as many as our buffer takes

/// Passes everything on, and counts the flushes for who waits for one.
class CountingSink : public spdlog::sinks::sink {
public:
    explicit CountingSink(spdlog::sink_ptr next) : m_next(std::move(next)) {}

    void log(const spdlog::details::log_msg& message) override { m_next->log(message); }
    void flush() override {
        m_next->flush();
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_flushes;
        m_flushed.notify_all();
    }
    void set_pattern(const std::string& pattern) override { m_next->set_pattern(pattern); }
    void set_formatter(std::unique_ptr<spdlog::formatter> formatter) override {
        m_next->set_formatter(std::move(formatter));
    }

    void WaitFor(long flushes) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_flushed.wait(lock, [&] { return m_flushes >= flushes; });
    }

private:
    const spdlog::sink_ptr m_next;
    std::mutex m_mutex;
    std::condition_variable m_flushed;
    long m_flushes = 0;
};

class Spdlog : public Logger {
public:
    Spdlog(const std::string& directory, LogMode mode) : m_isAsync(mode == LogMode::Async) {
        const auto file = std::make_shared<spdlog::sinks::basic_file_sink_mt>(directory + "/spdlog.log");
        if (m_isAsync) {
            m_sink = std::make_shared<CountingSink>(file);
            m_pool = std::make_shared<spdlog::details::thread_pool>(kQueue, 1);
            m_logger = std::make_shared<spdlog::async_logger>("Bench", m_sink, m_pool);
        } else {
            m_logger = std::make_shared<spdlog::logger>("Bench", file);
        }
        m_logger->set_pattern("[%Y-%m-%d %H:%M:%S.%f] [%t] [%l] [%n] [%s:%#] %v");
        m_logger->flush_on(mode == LogMode::Immediate ? spdlog::level::info : spdlog::level::off);
    }

    void Write(const char* text) override { SPDLOG_LOGGER_INFO(m_logger, "{}", text); }
    void Drain() override {
        m_logger->flush();
        if (m_isAsync) m_sink->WaitFor(++m_drains);
    }

private:
    const bool m_isAsync;
    long m_drains = 0;
    std::shared_ptr<CountingSink> m_sink;
    std::shared_ptr<spdlog::details::thread_pool> m_pool;
    std::shared_ptr<spdlog::logger> m_logger;
};

}  // namespace

std::unique_ptr<Logger> MakeSpdlog(const std::string& directory, LogMode mode) {
    return std::make_unique<Spdlog>(directory, mode);
}

}  // namespace bench
