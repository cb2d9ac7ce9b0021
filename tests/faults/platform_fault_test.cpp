// SPDX-License-Identifier: BSD-2-Clause
//
// Each call of the platform fails once, one after the other, in calls over a platform without an
// operating system whose worker answers at once.

#include <algorithm>

#include "tests/faults/faulty_call.h"
#include "tests/support/fake_platform.h"

namespace aiplc::faults {
namespace {

class FaultyPlatform : public platform::FakePlatform {
  public:
    explicit FaultyPlatform(int64_t failing) : m_failing(failing) { platform::fake = this; }
    int64_t Answer(std::string_view call, std::string_view about, int64_t usual) override {
        const bool isFirst = call == "OpenMapping" || (call == "FindProcess" && !m_isStarted);
        if (isFirst) usual = 0;
        if (call == "Wait" && Block() != nullptr) std::ranges::fill(Block()->AudioOut, 1000);
        if (!call.starts_with("Performance") && ++count == m_failing) {
            failed = std::string(call) + ' ' + std::string(about);
            if (call == "FindProcess") return kNoProcessList;
            if (call.ends_with("Bounded")) return -1;
            return call == "Wait" ? int64_t{platform::kWaitFailed} : 0;
        }
        if (call == "Start") m_isStarted = true;
        return usual;
    }

    int64_t count = 0;
    std::string failed;

  private:
    int64_t m_failing;  // the how manyth, from 1 on; 0: none
    bool m_isStarted = false;
};

}  // namespace

struct PlatformFaults : LoggedTest {};

TEST_F(PlatformFaults, EachInTurn) {
    for (const bool is48K : {false, true}) {
        FaultyPlatform usual(0);
        const Outcome sound = PlayCall(is48K);
        EXPECT_GT(sound.predicted, 5);
        for (int64_t n = 1; n <= usual.count; n += kStep) {
            FaultyPlatform platform(n);
            ExpectHarmless(PlayCall(is48K), sound, platform.failed);
            EXPECT_EQ(platform.Held(), 0) << platform.failed;
            EXPECT_EQ(platform.mutexDepth, 0) << platform.failed;
        }
        std::printf("%lld faults\n", static_cast<long long>(usual.count / kStep));
    }
}

}  // namespace aiplc::faults
