// SPDX-License-Identifier: BSD-2-Clause
//
// Bounded copy, fill and format after C11 Annex K: a size past half the address space is a negative
// number that was converted, and is refused.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "src/platform/platform.h"

namespace aiplc::platform {

namespace {

constexpr size_t kMaxSize = SIZE_MAX / 2;

bool Overlap(const void *left, const void *right, size_t count) {
    const auto a = reinterpret_cast<std::uintptr_t>(left);
    const auto b = reinterpret_cast<std::uintptr_t>(right);
    return (a > b ? a - b : b - a) < count;
}

}  // namespace

int CopyBounded(void *destination, size_t destinationSize, const void *source, size_t count) {
    if (destination == nullptr) return EINVAL;
    if (destinationSize > kMaxSize) return ERANGE;
    int error = 0;
    if (count > destinationSize) {
        error = ERANGE;
    } else if (source == nullptr || Overlap(destination, source, count)) {
        error = EINVAL;
    }
    if (error != 0) {
        std::memset(destination, 0, destinationSize);
    } else {
        std::memcpy(destination, source, count);
    }
    return error;
}

int FillBounded(void *destination, size_t destinationSize, int value, size_t count) {
    if (destination == nullptr) return EINVAL;
    if (destinationSize > kMaxSize) return ERANGE;
    std::memset(destination, value, std::min(count, destinationSize));
    return count > destinationSize ? ERANGE : 0;
}

int FormatBounded(char *buffer, size_t bufferSize, size_t maxCount, const char *format,
                  va_list arguments) {
    if (buffer == nullptr || bufferSize == 0 || bufferSize > kMaxSize) return -1;
    const size_t limit = std::min(maxCount, bufferSize - 1);
    const int length =
        format == nullptr ? -1 : std::vsnprintf(buffer, limit + 1, format, arguments);
    if (length >= 0 && static_cast<size_t>(length) <= limit) return length;
    buffer[0] = '\0';
    return -1;
}

}  // namespace aiplc::platform
