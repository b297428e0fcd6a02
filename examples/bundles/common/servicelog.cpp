#include "servicelog.h"

#include <cstdarg>
#include <cstdio>

#include "bundlemgr/bundlemgr.h"

using NS_BUNDLEMGR1::BundleMgr;
using NS_BUNDLEMGR1::LogProxy;

namespace alarms {

namespace {

constexpr std::size_t kMaxRecord = 4096;  // the log proxy takes no more than that

void Print(LogProxy& proxy, int level, const char* format, va_list arguments) {
    char text[kMaxRecord];
    std::vsnprintf(text, sizeof text, format, arguments);
    proxy.Printf(level, "%s\n", text);
}

}  // namespace

ServiceLog::ServiceLog(const char* bundle, const char* service, const char* sourceFile)
    : m_proxy(BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy(service)), m_sourceFile(sourceFile) {
    m_proxy->SetBundleName(bundle);
    m_proxy->SetServiceName(service);
}

void ServiceLog::Error(unsigned long line, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    m_proxy->SetPosition(m_sourceFile, line);
    Print(*m_proxy, NS_BUNDLEMGR1::LOG_LEVEL_ERROR, format, arguments);
    va_end(arguments);
}

void ServiceLog::Info(unsigned long line, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    m_proxy->SetPosition(m_sourceFile, line);
    Print(*m_proxy, NS_BUNDLEMGR1::LOG_LEVEL_INFO, format, arguments);
    va_end(arguments);
}

}  // namespace alarms
