// Operations by their place in an object's virtual table, as a caller in a library that
// was built long ago sees them.
#pragma once

#include <cstddef>

namespace test {

/// The operation in a slot of the object's primary table, as the 64-bit Itanium ABI lays
/// it out.
template <class Operation, class Object>
Operation Slot(const Object* object, std::size_t slot) {
    return reinterpret_cast<Operation>((*reinterpret_cast<void** const*>(object))[slot]);
}

}  // namespace test
