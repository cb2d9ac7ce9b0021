// SPDX-License-Identifier: BSD-2-Clause
//
// The library's log lines as a test saw them, "unit: text".

#ifndef AIPLC_LOG_LINES_H
#define AIPLC_LOG_LINES_H

#include <aiplc/aiplc.h>

#include <algorithm>
#include <cstdarg>
#include <string>
#include <utility>
#include <vector>

inline std::vector<std::string> logLines;

inline void KeepLine(const char *unit, int32_t, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    logLines.push_back(std::string(unit) + ": " + va_arg(arguments, const char *));
    va_end(arguments);
}

inline void CaptureLog() {
    logLines.clear();
    AiplcRegLog(KeepLine);
}

inline std::vector<std::string> TakeLog() {
    return std::exchange(logLines, {});
}

inline auto Logged(const std::string &line) {
    return std::count(logLines.begin(), logLines.end(), line);
}

#endif
