#include "logkeeper.h"

#include <chrono>

using NS_BUNDLEMGR1::LogProxyDebugInfoBufMgr;

void LogKeeper::Begin(bool trouble) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_loss = std::make_unique<LossReport>(trouble);
}

void LogKeeper::OpenNewFile() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_ended) return;  // it would be born again
    LogProxyDebugInfoBufMgr* const log = LogProxyDebugInfoBufMgr::Instance();
    if (log != nullptr) log->OpenNewFile();
}

std::string LogKeeper::Loss() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_loss == nullptr || m_ended) return "";
    return m_loss->Next(NS_BUNDLEMGR1::GetLogLoss(), std::chrono::steady_clock::now());
}

void LogKeeper::End() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_ended = true;
}
