// SPDX-License-Identifier: BSD-2-Clause
//
// The program's own malloc takes the place of the C library's in all shared libraries too, counts,
// and hands over to the C library's. operator new calls malloc.

#include "bench/allocations.h"

#include <cerrno>
#include <cstddef>

#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__)

namespace {

constinit thread_local uint64_t allocations = 0;

}  // namespace

// NOLINTBEGIN(readability-identifier-naming): the C library's names
extern "C" {

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *memory, size_t size);
void *__libc_memalign(size_t alignment, size_t size);

#define AIPLC_COUNTED [[gnu::visibility("default")]] void *

AIPLC_COUNTED malloc(size_t size) noexcept {
    ++allocations;
    return __libc_malloc(size);
}
AIPLC_COUNTED calloc(size_t count, size_t size) noexcept {
    ++allocations;
    return __libc_calloc(count, size);
}
AIPLC_COUNTED realloc(void *memory, size_t size) noexcept {
    ++allocations;
    return __libc_realloc(memory, size);
}
AIPLC_COUNTED memalign(size_t alignment, size_t size) noexcept {
    ++allocations;
    return __libc_memalign(alignment, size);
}
AIPLC_COUNTED aligned_alloc(size_t alignment, size_t size) noexcept {
    return memalign(alignment, size);
}

[[gnu::visibility("default")]] int posix_memalign(void **memory, size_t alignment,
                                                  size_t size) noexcept {
    void *block = memalign(alignment, size);
    if (block == nullptr) return ENOMEM;
    *memory = block;
    return 0;
}
}
// NOLINTEND(readability-identifier-naming)

std::optional<uint64_t> aiplc::bench::Allocations() {
    return allocations;
}

#else

std::optional<uint64_t> aiplc::bench::Allocations() {
    return std::nullopt;
}

#endif
