// What becomes of an exception that user code let escape.
#pragma once

#include <exception>

namespace NS_BUNDLEMGR1 {

/// For use inside a catch block. Calls `report` with the exception's `what()`, where it has
/// one. The text lives as long as that call.
template <class Report>
void TellCurrentException(Report report) {
    try {
        throw;
    } catch (const std::exception& exception) {
        report(exception.what());
    } catch (...) {
        report("an exception of unknown type");
    }
}

/// Runs `action`; an exception from it ends here, with a call of `report` that gets its
/// text, and what that throws, for want of memory, say, ends here, too. What ends a thread is
/// no exception and goes on.
/// @return whether `action` came to its end
template <class Action, class Report>
bool ReportException(Action action, Report report) {
    try {
        action();
        return true;
    } catch (...) {
        if (std::current_exception() == nullptr) throw;  // pthread_exit or a cancelled thread
        try {
            TellCurrentException(report);
        } catch (const std::exception&) {
            // Nobody can be told.
        }
        return false;
    }
}

}  // namespace NS_BUNDLEMGR1
