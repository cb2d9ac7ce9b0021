// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_LOG_LINES_H
#define AIPLC_TOOLS_LOG_LINES_H

#include <cstdint>

namespace aiplc::tools {

// Prints the library's log lines to standard error: an AiplcLogFunc.
void PrintLog(const char *sourceUnit, int32_t line, const char *format, ...);

}  // namespace aiplc::tools

#endif
