#include "progress.h"

#include <ctime>

void Progress::Begin(const std::string& step) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (step == m_step) return;
    m_step = step;
    m_since = std::chrono::system_clock::now();
    m_begin = std::chrono::steady_clock::now();
}

std::string Progress::Text() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const std::time_t since = std::chrono::system_clock::to_time_t(m_since);
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - m_begin).count();
    std::tm local{};
    localtime_r(&since, &local);
    char time[32];
    std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:%S", &local);
    return "waiting for " + m_step + " since " + time + " (" + std::to_string(seconds) + " s)";
}
