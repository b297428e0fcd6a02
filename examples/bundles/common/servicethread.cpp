#include "servicethread.h"

#include <exception>
#include <utility>

#include <cxxabi.h>

namespace alarms {

namespace {

constexpr std::chrono::seconds kPauseAfterException(1);

}  // namespace

ServiceThread::~ServiceThread() {
    Stop();
}

void ServiceThread::Start(Round round) {
    m_thread = std::thread([this, function = std::move(round)] { Run(function); });
}

void ServiceThread::Stop() {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    const std::lock_guard<std::mutex> onlyOne(m_joinMutex);
    if (m_thread.joinable()) m_thread.join();
}

void ServiceThread::Wake() {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_woken = true;
    }
    m_wake.notify_all();
}

bool ServiceThread::Stopping() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_stopping;
}

void ServiceThread::Run(const Round& round) {
    while (!Stopping()) {
        const std::chrono::milliseconds pause = OneRound(round);
        std::unique_lock<std::mutex> lock(m_mutex);
        m_wake.wait_for(lock, pause, [this] { return m_stopping || m_woken; });
        m_woken = false;
    }
}

std::chrono::milliseconds ServiceThread::OneRound(const Round& round) {
    try {
        return round();
    } catch (const abi::__forced_unwind&) {
        throw;  // the thread is being cancelled
    } catch (const std::exception& exception) {
        m_log.Error(__LINE__, "the service's thread failed and tries again: %s", exception.what());
    } catch (...) {
        m_log.Error(__LINE__, "the service's thread failed and tries again: not a standard exception");
    }
    return kPauseAfterException;
}

}  // namespace alarms
