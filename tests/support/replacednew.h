// An operator new that can fail. For one source file of a program, whose own operators come
// before those of the C++ library.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

namespace test {

/// Defined by the program. @return whether this request is to fail
bool RefusesMemory() noexcept;

inline void* AllocateUnlessRefused(std::size_t size) noexcept {
    return RefusesMemory() ? nullptr : std::malloc(size > 0 ? size : 1);
}

inline void* AllocateOrThrow(std::size_t size) {
    void* const memory = AllocateUnlessRefused(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

}  // namespace test

#define ZO_REPLACES_NEW __attribute__((visibility("default")))

ZO_REPLACES_NEW void* operator new(std::size_t size) {
    return test::AllocateOrThrow(size);
}
ZO_REPLACES_NEW void* operator new[](std::size_t size) {
    return test::AllocateOrThrow(size);
}
ZO_REPLACES_NEW void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return test::AllocateUnlessRefused(size);
}
ZO_REPLACES_NEW void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return test::AllocateUnlessRefused(size);
}
ZO_REPLACES_NEW void operator delete(void* memory) noexcept {
    std::free(memory);
}
ZO_REPLACES_NEW void operator delete[](void* memory) noexcept {
    std::free(memory);
}
ZO_REPLACES_NEW void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
ZO_REPLACES_NEW void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
ZO_REPLACES_NEW void operator delete(void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
ZO_REPLACES_NEW void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}

#undef ZO_REPLACES_NEW
