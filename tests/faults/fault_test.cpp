// SPDX-License-Identifier: BSD-2-Clause
//
// One after the other, each allocation and each call of the operating system fails once in calls
// with a worker process.

#include <algorithm>
#include <fstream>
#include <string>

#include "tests/faults/injection.h"
#include "tests/support/logged_test.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/scripted_host.h"

namespace aiplc::faults {
namespace {

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
Outcome PlayCall(bool is48K) {
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
void ExpectHarmless(const Outcome &outcome, const Outcome &sound, const std::string &what) {
    constexpr int kLost = 3;
    EXPECT_LE(outcome.failedCalls, 1) << what;
    EXPECT_LE(outcome.silent, sound.silent + kLost) << what;
    const bool lacksWorker = !outcome.isRefused && outcome.predicted < sound.predicted / 2;
    EXPECT_TRUE(!lacksWorker || outcome.log != sound.log) << what;
}

void Log(const char *unit, int32_t line, const char *format, ...) {
    const Outside outside;
    va_list arguments;
    va_start(arguments, format);
    LoggedTest::Keep(unit, line, format, va_arg(arguments, const char *));
    va_end(arguments);
}

// Mappings of shared memory.
int Views() {
    int count = 0;
    std::ifstream file("/proc/self/maps");
    for (std::string line; std::getline(file, line);)
        count += line.find("/SYSV") != std::string::npos ? 1 : 0;
    return count;
}

class Faults : public LoggedTest, public testing::WithParamInterface<std::tuple<Kind, bool>> {
  protected:
    Faults() { AiplcRegLog(Log); }
    static Outcome Play(int64_t failing) {
        const auto [kind, is48K] = GetParam();
        plan = {.kind = kind, .failing = failing, .failed = {}};
        Outcome outcome = PlayCall(is48K);
        EndWorker();
        return outcome;
    }
};

}  // namespace

TEST_P(Faults, EachInTurn) {
    (void)Play(0);
    const Outcome sound = Play(0);
    const int64_t count = plan.count;
    const auto descriptors = OpenDescriptors();
    const int views = Views();
    ASSERT_GT(count, 20);
    ASSERT_GT(sound.predicted, 5);
    for (int64_t n = 1; n <= count; n += kStep) {
        const Outcome outcome = Play(n);
        const std::string what = std::to_string(n) + ": " + plan.failed;
        if (plan.failed.empty()) break;  // one less than in the sound call
        ExpectHarmless(outcome, sound, what);
        EXPECT_EQ(plan.allocated, 0) << what;
        EXPECT_EQ(OpenDescriptors(), descriptors) << what;
        EXPECT_EQ(Views(), views) << what;
    }
    std::printf("%lld faults\n", static_cast<long long>(count / kStep));
}

INSTANTIATE_TEST_SUITE_P(, Faults,
                         testing::Combine(testing::Values(Kind::memory, Kind::system),
                                          testing::Bool()));

}  // namespace aiplc::faults
