// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_FAULTY_CALL_H
#define AIPLC_TESTS_FAULTY_CALL_H

#include <algorithm>
#include <string>

#include "tests/support/logged_test.h"
#include "tests/support/scripted_host.h"

namespace aiplc::faults {

// With sanitizers calls and processes take long, and every seventh fault is tried.
#if defined(__SANITIZE_ADDRESS__)
constexpr int64_t kStep = 7;
#else
constexpr int64_t kStep = 1;
#endif

// The outcome of a call with losses, from set-up to tear-down.
struct Outcome {
    bool isRefused = false;  // the set-up left no channel
    int failedCalls = 0;     // of AiPlcApply
    int silent = 0;          // frames
    int predicted = 0;       // frames
    std::string log;         // without the digits, among which are process ids
};

// Plays 50 frames within a LoggedTest.
inline Outcome PlayCall(bool is48K) {
    Outcome outcome;
    LoggedTest::TakeLog();
    {
        ScriptedHost host(is48K, 1);
        outcome.isRefused = host.channel.outputRing == nullptr;
        const size_t samples = is48K ? 960 : 320;
        host.conceal = [samples](AiPlcDecodeRequest &request) {
            std::fill_n(request.pcmOut, samples, int16_t{500});
            request.pcmOutSamples = static_cast<uint16_t>(samples);
            return 0;
        };
        for (int i = 0; i < 50 && !outcome.isRefused; ++i) {
            const bool isLost = i > 4 && i % 5 >= 3;
            const int32_t result =
                isLost ? host.Lose() : host.Receive({{i, Samples(samples, int16_t{700})}});
            outcome.failedCalls += result != 0 ? 1 : 0;
            const Samples heard = host.Take();
            const bool isSilent =
                heard.size() != samples || std::ranges::all_of(heard, [](int s) { return s == 0; });
            outcome.silent += isSilent ? 1 : 0;
            const bool isPredicted =
                !heard.empty() && host.channel.outputRing->head->pktType == AIPLC_INTERPOLATE;
            outcome.predicted += isPredicted ? 1 : 0;
        }
    }
    outcome.log = LoggedTest::TakeLog();
    std::erase_if(outcome.log, [](char c) { return c >= '0' && c <= '9'; });
    return outcome;
}

// Expects of a call in which one thing failed that it lost no more than the frames of a copy, and
// that it has said so where it goes on without its worker.
inline void ExpectHarmless(const Outcome &outcome, const Outcome &sound, const std::string &what) {
    constexpr int kLost = 3;
    EXPECT_LE(outcome.failedCalls, 1) << what;
    EXPECT_LE(outcome.silent, sound.silent + kLost) << what;
    const bool lacksWorker = !outcome.isRefused && outcome.predicted < sound.predicted / 2;
    EXPECT_TRUE(!lacksWorker || outcome.log != sound.log) << what;
}

}  // namespace aiplc::faults

#endif
