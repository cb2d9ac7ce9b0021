// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_SCRIPTED_PLATFORM_H
#define AIPLC_TESTS_SCRIPTED_PLATFORM_H

#include <aiplc/adapter.h>

#include <algorithm>
#include <map>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/fake_platform.h"
#include "tests/support/logged_test.h"

constexpr int64_t kOutOfMemory = -2;  // as an answer: throws std::bad_alloc

// Records the calls and answers as scripted. The answer to a copy is its error, or 0.
struct ScriptedPlatform : aiplc::platform::FakePlatform {
    int64_t Answer(std::string_view call, std::string_view about, int64_t usual) override {
        if (call == "FillBounded") return usual;  // each line of the log makes one
        std::string &made = calls.emplace_back(call);
        if (!about.empty()) made.append(" ").append(about);
        if (call == "Wait") made += ' ' + std::to_string(waitMs);
        auto answer = answers.find({made, std::ranges::count(calls, made)});
        if (answer == answers.end()) answer = answers.find({made, 0});
        if (answer == answers.end()) return usual;
        if (answer->second == kOutOfMemory) throw std::bad_alloc();
        return answer->second;
    }

    std::vector<std::string> calls;  // such as "SetEvent NAME", "Wait NAME MILLISECONDS"
    // To the nth of these calls, or the 0th to each. At first nothing is there.
    std::map<std::pair<std::string, ptrdiff_t>, int64_t> answers = {
        {{"OpenMapping SharedMem", 1}, 0}, {{"FindProcess", 1}, 0}};
};
inline ScriptedPlatform scripted;

struct ScriptedTest : LoggedTest {
    ScriptedTest() {
        scripted = {};
        aiplc::platform::fake = &scripted;
    }
    InoutDetail record{};
};

#endif
