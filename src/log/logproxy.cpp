#include <bundlemgr/log.h>

#include "src/platform/standardoutput.h"

namespace NS_BUNDLEMGR1 {

LogProxy::~LogProxy() = default;

LogProxyMgr::~LogProxyMgr() = default;

DefaultLogProxy::~DefaultLogProxy() = default;

void DefaultLogProxy::Write(int, const char*) {}

void DefaultLogProxy::WriteText(const char*) {}

void DefaultLogProxy::Printf(int, const char* format, ...) {
    PrintOutText(format != nullptr ? format : "");
}

void DefaultLogProxy::PrintfText(const char*, ...) {}

bool DefaultLogProxy::IsLevelEnabled(int) {
    return false;
}

bool DefaultLogProxy::DisableLevel(int) {
    return false;
}

bool DefaultLogProxy::EnableLevel(int) {
    return false;
}

bool DefaultLogProxy::DisableAllLevels() {
    return false;
}

bool DefaultLogProxy::EnableAllLevels() {
    return false;
}

void DefaultLogProxy::FlushDebugInfo() {}

bool DefaultLogProxy::SetDebugOutputMode(int) {
    return false;
}

void DefaultLogProxy::SetPosition(const char*, unsigned long) {}

void DefaultLogProxy::SetBundleName(const char*) {}

void DefaultLogProxy::SetServiceName(const char*) {}

std::string DefaultLogProxy::GetName() const {
    return "DefaultLogProxy";
}

}  // namespace NS_BUNDLEMGR1
