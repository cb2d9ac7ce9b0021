// SPDX-License-Identifier: BSD-2-Clause
//
// One after the other, each allocation and each call of the operating system fails once in calls
// with a worker process.

#include <fstream>

#include "tests/faults/faulty_call.h"
#include "tests/faults/injection.h"
#include "tests/support/open_descriptors.h"

namespace aiplc::faults {
namespace {

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
