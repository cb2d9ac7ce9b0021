// SPDX-License-Identifier: BSD-2-Clause
//
// One after the other, everything that can fail in a call fails once: 50 frames with losses, from
// the set-up to the tear-down.

#include <gtest/gtest.h>

#include <filesystem>

#include "../adapter/fixtures.h"
#include "../pipeline/scripted_host.h"
#include "injection.h"

namespace aiplc::faults {
namespace {

constexpr int kFrames = 50;
#if defined(__SANITIZE_ADDRESS__)
constexpr int64_t kStep = 7;  // a process takes long to fork there
#else
constexpr int64_t kStep = 1;
#endif
constexpr int kLost = 3;  // frames that a fault may silence: what the copy that failed was for

size_t Descriptors() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                             std::filesystem::directory_iterator()));
}

void Log(const char *unit, int32_t line, const char *format, ...) {
    const Outside outside;
    va_list arguments;
    va_start(arguments, format);
    LoggedTest::Keep(unit, line, format, va_arg(arguments, const char *));
    va_end(arguments);
}

struct Outcome {
    bool isRefused = false;  // the set-up left no channel
    int failedCalls = 0;     // of AiPlcApply
    int silent = 0;          // frames
    int predicted = 0;
    size_t descriptors = 0;  // open afterwards
    std::string log;
};

Outcome PlayCall(bool is48K, Kind kind, int64_t failing) {
    Outcome outcome;
    (void)LoggedTest::TakeLog();
    plan = {.kind = kind, .failing = failing, .failed = {}};
    {
        ScriptedHost host(is48K, 1);
        outcome.isRefused = host.channel.outputRing == nullptr;
        const size_t samples = is48K ? 960 : 320;
        host.conceal = [samples](AiPlcDecodeRequest &request) {
            std::fill_n(request.pcmOut, samples, int16_t{500});
            request.pcmOutSamples = static_cast<uint16_t>(samples);
            return 0;
        };
        for (int i = 0; i < kFrames && !outcome.isRefused; ++i) {
            const bool isLost = i > 4 && i % 5 >= 3;
            const int32_t result =
                isLost ? host.Lose() : host.Receive({{i, Samples(samples, int16_t{700})}});
            outcome.failedCalls += result != 0 ? 1 : 0;
            const Samples heard = host.Take();
            const bool isSilent =
                heard.size() != samples || std::ranges::all_of(heard, [](int s) { return s == 0; });
            outcome.silent += isSilent ? 1 : 0;
            if (!heard.empty())
                outcome.predicted +=
                    host.channel.outputRing->head->pktType == AIPLC_INTERPOLATE ? 1 : 0;
        }
    }
    EndWorker();
    outcome.descriptors = Descriptors();
    outcome.log = LoggedTest::TakeLog();
    std::erase_if(outcome.log, [](char c) { return c >= '0' && c <= '9'; });  // process ids
    return outcome;
}

class Faults : public testing::TestWithParam<std::tuple<Kind, bool>> {
  protected:
    Faults() { AiplcRegLog(Log); }
};

}  // namespace

TEST_P(Faults, EachInTurn) {
    const auto [kind, is48K] = GetParam();
    (void)PlayCall(is48K, kind, 0);
    const Outcome sound = PlayCall(is48K, kind, 0);
    const int64_t count = plan.count;
    ASSERT_GT(count, 20);
    ASSERT_GT(sound.predicted, 5);
    ASSERT_EQ(sound.failedCalls, 0);
    for (int64_t n = 1; n <= count; n += kStep) {
        const Outcome outcome = PlayCall(is48K, kind, n);
        const std::string what = std::to_string(n) + ": " + plan.failed;
        if (plan.failed.empty()) break;  // one less than in the sound call
        EXPECT_LE(outcome.failedCalls, 1) << what;
        EXPECT_LE(outcome.silent, sound.silent + kLost) << what;
        EXPECT_EQ(plan.allocated, 0) << what;
        EXPECT_EQ(plan.held, 0) << what;
        EXPECT_EQ(outcome.descriptors, sound.descriptors) << what;
        // A call that goes on without its worker says so.
        const bool lacksWorker = !outcome.isRefused && outcome.predicted < sound.predicted / 2;
        EXPECT_TRUE(!lacksWorker || outcome.log != sound.log) << what;
    }
    std::printf("%lld faults\n", static_cast<long long>(count / kStep));
}

INSTANTIATE_TEST_SUITE_P(
    , Faults,
    testing::Combine(testing::Values(Kind::memory, Kind::platform, Kind::system), testing::Bool()));

}  // namespace aiplc::faults
