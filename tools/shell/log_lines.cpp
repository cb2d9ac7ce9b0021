// SPDX-License-Identifier: BSD-2-Clause

#include "tools/shell/log_lines.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace aiplc::tools {

// Messages may end in a line feed of their own.
void PrintLog(const char *sourceUnit, int32_t line, const char *format, ...) {
    std::array<char, 1280> text{};
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyser misses va_start here.
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    std::string message = text.data();
    while (!message.empty() && message.back() == '\n')
        message.pop_back();
    std::fprintf(stderr, "%s:%d: %s\n", sourceUnit, line, message.c_str());
}

}  // namespace aiplc::tools
