// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_FIXTURES_H
#define AIPLC_FIXTURES_H

#include <aiplc/adapter.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "adapter/protocol.h"

// A test that keeps the library's log, in lines of "unit: text".
struct LoggedTest : testing::Test {
    LoggedTest() { AiplcRegLog(Keep); }
    static std::string TakeLog() { return std::exchange(log, {}); }
    static void Keep(const char *unit, int32_t, const char *format, ...) {
        va_list arguments;
        va_start(arguments, format);
        log += std::string(unit) + ": " + va_arg(arguments, const char *) + '\n';
        va_end(arguments);
    }
    static inline std::string log;
};

constexpr int64_t kOutOfMemory = -1;  // as an answer: throws std::bad_alloc
constexpr uint32_t kNoProcessList = 0xFFFFFFFE;

// A platform without an operating system: it records the calls and answers as scripted.
struct ScriptedPlatform {
    std::vector<std::string> calls;  // as "SetEvent NAME" or "Wait NAME MILLISECONDS"
    // To the nth of these calls, or the 0th to each: a wait's outcome, a copy's error, a view's
    // size, a clock reading, a process id, or whether it succeeds. At first nothing is there.
    std::map<std::pair<std::string, ptrdiff_t>, int64_t> answers = {
        {{"OpenMapping SharedMem", 1}, 0}, {{"FindProcess", 1}, 0}};
    aiplc::protocol::SharedBlock block{};
    int held = 0;        // handles and views
    int mutexDepth = 0;  // how often this thread owns the mutex
};
inline ScriptedPlatform scripted;

struct ScriptedTest : LoggedTest {
    ScriptedTest() { scripted = {}; }
    InoutDetail record{};
};

#endif
