// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_LOGGED_TEST_H
#define AIPLC_TESTS_LOGGED_TEST_H

#include <aiplc/aiplc.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <string>
#include <utility>

// A test that keeps the library's log, in lines of "unit: text".
struct LoggedTest : testing::Test {
    LoggedTest() {
        log.clear();
        AiplcRegLog(Keep);
    }
    ~LoggedTest() override { AiplcRegLog(nullptr); }
    static std::string TakeLog() { return std::exchange(log, {}); }
    static void Keep(const char *unit, int32_t /*line*/, const char *format, ...) {
        va_list arguments;
        va_start(arguments, format);
        log += std::string(unit) + ": " + va_arg(arguments, const char *) + '\n';
        va_end(arguments);
    }
    static inline std::string log;
};

#endif
