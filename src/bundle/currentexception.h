// What becomes of an exception that user code let escape.
#pragma once

#include <exception>
#include <string>

namespace NS_BUNDLEMGR1 {

/// For use inside a catch block. @return the exception's `what()`, where it has one
inline std::string CurrentException() {
    try {
        throw;
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (...) {
        return "an exception of unknown type";
    }
}

/// Runs `action`; an exception from it ends here, with a call of `report` that gets its
/// text. What ends a thread is no exception and goes on.
template <class Action, class Report>
void ReportException(Action action, Report report) {
    try {
        action();
    } catch (...) {
        if (std::current_exception() == nullptr) throw;  // pthread_exit or a cancelled thread
        report(CurrentException());
    }
}

}  // namespace NS_BUNDLEMGR1
