// What the configurator is told to do for one service.
#pragma once

#include <string>

namespace NS_BUNDLEMGR1 {

/// An entry of a bundle's `svc.cfg`.
struct ServiceDirective {
    std::string service;    ///< Its name.
    std::string library;    ///< That of the library that it comes from: "lib" and the name, without ".so".
    std::string directive;  ///< The line that the configurator processes.
};

}  // namespace NS_BUNDLEMGR1
