// A text about the exception that is being handled.
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

}  // namespace NS_BUNDLEMGR1
