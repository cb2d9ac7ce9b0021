// SPDX-License-Identifier: BSD-2-Clause

#include "worker/classical/candidates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "worker/classical/pitch_repetition.h"

namespace aiplc::worker {
namespace {

// Pulses through a resonance, exactly the same in each cycle.
float Voice(size_t i, size_t cycle) {
    const auto t = static_cast<double>(i % cycle);
    return static_cast<float>(8000 * std::exp(-t / 20) * std::cos(0.5 * t));
}

}  // namespace

TEST(PitchRepetition, GoesOnWithTheCycleOfWhatIsPeriodic) {
    for (const size_t cycle : {41U, 100U, 319U}) {
        for (const size_t known : {2 * cycle + 3, size_t{1280}}) {
            std::vector<float> past(known);
            for (size_t i = 0; i < known; ++i)
                past[i] = Voice(i, cycle);
            EXPECT_EQ(PitchCycle(past) % cycle, 0U) << cycle << ' ' << known;
            std::vector<float> made(900);
            RepeatPitch(past, made);
            for (size_t i = 0; i < made.size(); ++i)
                EXPECT_NEAR(made[i], Voice(known + i, cycle), 1e-2) << cycle << ' ' << i;
        }
    }
    std::vector<float> made(10, 1);
    RepeatPitch(std::vector<float>(63, 5), made);
    EXPECT_EQ(made, std::vector<float>(10));
}

// The first frame after the gap is noise, as after a codec that lost its state: only what comes
// from before the gap or from behind that frame has the tone in it.
TEST(Candidates, LookPastTheFirstFrameAfterAGap) {
    std::array<int16_t, kWindowSamples> tone{};
    for (size_t i = 0; i < tone.size(); ++i) {
        const auto t = static_cast<double>(i);
        tone[i] = static_cast<int16_t>(
            std::lround(6000 * std::sin(0.21 * t) + 3000 * std::sin(0.07 * t + 1)));
    }
    auto window = tone;
    std::minstd_rand random(3);
    std::fill_n(&window[1280], 640, int16_t{0});
    std::generate_n(&window[1920], 320,
                    [&] { return static_cast<int16_t>(random() % 8000 - 4000); });
    Candidates candidates;
    std::array<int16_t, kWindowSamples> filled{};
    ASSERT_TRUE(candidates.Make(window, filled));
    EXPECT_EQ(candidates.LastGap().begin, 1280U);
    EXPECT_EQ(candidates.LastGap().end, 1920U);
    const auto error = [&](Candidates::Kind kind, size_t begin, size_t end) {
        double noise = 0;
        double power = 0;
        for (size_t i = begin; i < end; ++i) {
            const double is = candidates[kind][i - Candidates::kBegin];
            noise += (is - tone[i]) * (is - tone[i]);
            power += double(tone[i]) * tone[i];
        }
        return noise / power;
    };
    EXPECT_LT(error(Candidates::forward, 1280, 2240), 0.02);
    EXPECT_LT(error(Candidates::distant, 1280, 2240), 0.02);
    EXPECT_GT(error(Candidates::backward, 1280, 1920), 0.2);
    for (size_t kind = 0; kind < Candidates::kCount; ++kind) {
        const auto &signal = candidates[static_cast<Candidates::Kind>(kind)];
        EXPECT_TRUE(std::equal(signal.begin(), signal.begin() + 640, window.begin() + 640)) << kind;
        if (kind == Candidates::backward || kind == Candidates::pitchBackward) {
            EXPECT_TRUE(std::equal(signal.begin() + 1280, signal.end(), window.begin() + 1920))
                << kind;
        }
    }
}

}  // namespace aiplc::worker
