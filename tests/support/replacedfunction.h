// Functions of the C library that a program of a test defines itself. They come before the C
// library's own, for every library of the process.
#pragma once

#include <dlfcn.h>

/// Stands before the definition.
#define ZO_REPLACES __attribute__((visibility("default")))

namespace test {

/// @return the function that would have been called without this program's own
template <class Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace test
