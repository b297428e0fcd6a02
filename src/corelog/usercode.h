// A call into somebody else's code, which may throw.
#pragma once

#include "src/corelog/corelog.h"
#include "src/corelog/currentexception.h"

namespace NS_BUNDLEMGR1 {

/// Whose code it is.
struct UserCode {
    const char* kind;  ///< "bundle" or "service".
    const char* name;
};

/// Writes the record of an exception that left `operation`.
inline void ReportThrown(CoreLog& log, int line, const char* operation, const UserCode& code, const char* what) {
    log.Print(static_cast<unsigned long>(line), LOG_LEVEL_ERROR, "Error: %s of %s %s threw: %s\n", operation, code.kind,
              code.name, what);
}

/// Runs `action`. An exception from it is recorded and goes no further, so that one bundle or
/// service that throws does not keep the others from being started or ended.
template <class Action>
void Contain(CoreLog& log, int line, const char* operation, const UserCode& code, Action action) {
    ReportException(action, [&](const char* what) { ReportThrown(log, line, operation, code, what); });
}

}  // namespace NS_BUNDLEMGR1
