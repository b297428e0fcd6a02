#include <bundlemgr/log.h>

#include <typeinfo>

#include "src/platform/bounded.h"
#include "src/platform/standardoutput.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr std::size_t kTextSize = 4096;  // as much as a record takes

// A format that prints the text as it stands.
void MakeFormat(const char* text, char* format) {
    for (; *text != '\0'; ++text) {
        if (*text == '%') *format++ = '%';
        *format++ = *text;
    }
    *format = '\0';
}

}  // namespace

LogProxy::~LogProxy() = default;

void LogProxy::VPrintfAt(const char* file, unsigned long line, int level, const char* format, va_list args) {
    char text[kTextSize];
    vsnprintf_s(text, sizeof text, sizeof text - 1, format, args);
    char printable[2 * kTextSize];
    MakeFormat(text, printable);
    SetPosition(file, line);
    // Not "%s", for there are proxies whose Printf looks at its format only.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    Printf(level, printable);
#pragma GCC diagnostic pop
}

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

void DefaultLogProxy::VPrintfAt(const char* file, unsigned long line, int level, const char* format, va_list args) {
    if (typeid(*this) != typeid(DefaultLogProxy)) {
        LogProxy::VPrintfAt(file, line, level, format, args);
        return;
    }
    PrintOutText(format != nullptr ? format : "");
}

}  // namespace NS_BUNDLEMGR1
