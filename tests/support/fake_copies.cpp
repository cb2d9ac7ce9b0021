// SPDX-License-Identifier: BSD-2-Clause

#include <cstdio>
#include <cstring>

#include "tests/support/fake_platform.h"

namespace aiplc::platform {

int CopyBounded(void *destination, size_t size, const void *source, size_t count) {
    const auto error = static_cast<int>(fake->Answer("CopyBounded", std::to_string(count), 0));
    if (error == 0) std::memcpy(destination, source, count);
    if (error != 0) std::memset(destination, 0, size);
    return error;
}
int FillBounded(void *destination, size_t, int value, size_t count) {
    const auto error = static_cast<int>(fake->Answer("FillBounded", std::to_string(count), 0));
    if (error == 0) std::memset(destination, value, count);
    return error;
}
int FormatBounded(char *buffer, size_t size, size_t, const char *format, va_list arguments) {
    return std::vsnprintf(buffer, size, format, arguments);
}

}  // namespace aiplc::platform
