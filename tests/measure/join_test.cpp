// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <cmath>

#include "measure/joins.h"
#include "measure/pitch.h"
#include "tests/measure/signals.h"

namespace aiplc::measure {
namespace {

// Two signals of 50 ms, one behind the other.
Samples Joined(Samples before, const Samples &after) {
    before.insert(before.end(), after.begin(), after.end());
    return before;
}

// Pulses of one sign with overtones, as a voice has them.
Samples Voice(int rate, double hz, double amplitude, size_t length) {
    Samples voice(length, 0);
    for (int overtone = 1; overtone <= 10; ++overtone)
        voice = Sum(voice, Sine(rate, hz * overtone, amplitude / overtone, length));
    return voice;
}

TEST(JoinsTest, StepsOfLevelAndPitch) {
    for (const int rate : {16000, 48000}) {
        const auto side = static_cast<size_t>(rate / 20);
        const Samples step = Joined(Voice(rate, 100, 1000, side), Voice(rate, 150, 4000, side));
        // Both periods divide 10 ms or leave less than 0.5 dB.
        EXPECT_NEAR(LevelStepDb(step, side, rate).value_or(99.0), 12.04, 0.6) << rate;
        EXPECT_NEAR(PitchStep(step, side, rate).value_or(99.0), 7.02, 0.1) << rate;  // a fifth
        const Samples steady = Voice(rate, 100, 1000, 2 * side);
        EXPECT_NEAR(LevelStepDb(steady, side, rate).value_or(99.0), 0.0, 0.01);
        EXPECT_NEAR(PitchStep(steady, side, rate).value_or(99.0), 0.0, 0.02);
        // 40 ms must lie on both sides.
        EXPECT_FALSE(LevelStepDb(steady, side / 2, rate).has_value());
        EXPECT_FALSE(ClickDb(steady, 2 * side - side / 2, rate).has_value());
    }
    // -90 dBFS stands for silence: 4000^2 / 2 over 1.
    const Samples onset = Joined(Samples(800, 0), Sine(16000, 1000, 4000, 800));
    EXPECT_NEAR(LevelStepDb(onset, 800, 16000).value_or(0.0), 69.03, 0.01);
    EXPECT_FALSE(PitchStep(onset, 800, 16000).has_value());
}

TEST(JoinsTest, PitchOfVoicesNotOfNoise) {
    for (const double hz : {70.0, 110.0, 213.0, 390.0}) {
        EXPECT_NEAR(PitchHz(Voice(16000, hz, 1000, 640), 16000).value_or(0.0), hz, 0.01 * hz);
        EXPECT_NEAR(PitchHz(Voice(48000, hz, 1000, 1920), 48000).value_or(0.0), hz, 0.01 * hz);
    }
    EXPECT_FALSE(PitchHz(Noise(3, 0.1, 640), 16000).has_value());
    EXPECT_FALSE(PitchHz(Samples(640, 0), 16000).has_value());
}

TEST(JoinsTest, ClickIsTheExcessOverTheSurroundings) {
    for (const int rate : {16000, 48000}) {
        const auto side = static_cast<size_t>(rate / 20);
        Samples ramp;  // 9 per sample, up and down, with the turns away from the join
        for (size_t i = 0; i < 2 * side; ++i) {
            const auto phase = static_cast<int>((i + 100) % 400);
            ramp.push_back(static_cast<int16_t>(9 * (phase < 200 ? phase : 400 - phase)));
        }
        EXPECT_EQ(ClickDb(ramp, side, rate).value_or(99.0), 0.0);
        Samples click = ramp;  // a step of 990 atop the slope of 9: 1000 over 10 with the floor
        const int slope = ramp[side + 1] - ramp[side];
        for (size_t i = side; i < click.size(); ++i)
            click[i] = static_cast<int16_t>(click[i] + 110 * slope);
        EXPECT_NEAR(ClickDb(click, side, rate).value_or(99.0), 40.0, 0.01) << rate;
        // The same step elsewhere is no click of this join.
        EXPECT_EQ(ClickDb(click, side + static_cast<size_t>(rate / 500), rate).value_or(99.0), 0.0);
    }
}

}  // namespace
}  // namespace aiplc::measure
