#include "servicelog.h"

#include <cstdio>

#include <bundlemgr/bundlemgr.h>

using NS_BUNDLEMGR1::BundleMgr;

namespace alarms {

namespace {

constexpr std::size_t kMaxRecord = 4096;  // the log proxy takes no more than that

}  // namespace

ServiceLog::ServiceLog(const char* bundle, const char* service, const char* sourceFile)
    : m_proxy(BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy(service)), m_sourceFile(sourceFile) {
    m_proxy->SetBundleName(bundle);
    m_proxy->SetServiceName(service);
}

void ServiceLog::Error(unsigned long line, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Record(NS_BUNDLEMGR1::LOG_LEVEL_ERROR, line, format, arguments);
    va_end(arguments);
}

void ServiceLog::Info(unsigned long line, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Record(NS_BUNDLEMGR1::LOG_LEVEL_INFO, line, format, arguments);
    va_end(arguments);
}

void ServiceLog::Record(int level, unsigned long line, const char* format, va_list arguments) noexcept {
    char text[kMaxRecord];
    std::vsnprintf(text, sizeof text, format, arguments);
    m_proxy->SetPosition(m_sourceFile, line);
    m_proxy->Printf(level, "%s\n", text);
}

}  // namespace alarms
