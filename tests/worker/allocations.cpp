// SPDX-License-Identifier: BSD-2-Clause

#include "allocations.h"

#include <cstdlib>
#include <new>

size_t aiplc::allocations = 0;

// Not inlined: the compiler would take free() for the wrong partner of operator new.
[[gnu::noinline]] void *operator new(size_t size) {
    ++aiplc::allocations;
    if (void *memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void *operator new(size_t size, std::align_val_t alignment) {
    ++aiplc::allocations;
    const auto step = static_cast<size_t>(alignment);
    if (void *memory = std::aligned_alloc(step, (size + step - 1) / step * step)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void *operator new(size_t size, const std::nothrow_t &) noexcept {
    ++aiplc::allocations;
    return std::malloc(size);
}
[[gnu::noinline]] void operator delete(void *memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void *memory, size_t) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void *memory, std::align_val_t) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void *memory, size_t, std::align_val_t) noexcept {
    std::free(memory);
}
