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

/// Runs `action`. An exception from it goes no further: `report` is called with its text.
/// What `report` throws, where memory is short for instance, goes no further either. The end
/// of a thread (`pthread_exit`, cancellation) is no exception and is not held up.
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
