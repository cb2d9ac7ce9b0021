// SPDX-License-Identifier: BSD-2-Clause

#include "tools/log_spectral_distance.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace aiplc::tools {
namespace {

std::vector<int16_t> Noise(size_t count, int amplitude) {
    std::mt19937 random(11);
    std::vector<int16_t> samples(count);
    for (int16_t &sample : samples) {
        sample =
            static_cast<int16_t>(static_cast<int>(random() % 2001U) * amplitude / 1000 - amplitude);
    }
    return samples;
}

std::vector<int16_t> Scaled(std::vector<int16_t> samples, int factor) {
    for (int16_t &sample : samples)
        sample = static_cast<int16_t>(sample * factor);
    return samples;
}

TEST(LogSpectralDistanceTest, GainOfTwoIsSixDecibel) {
    for (const int rate : {16000, 48000}) {
        LogSpectralDistance distance(rate);
        const auto noise = Noise(static_cast<size_t>(rate / 50), 8000);
        EXPECT_NEAR(distance.FrameDb(Scaled(noise, 2), noise), 6.02, 0.01) << rate;
        EXPECT_EQ(distance.FrameDb(noise, noise), 0.0) << rate;
    }
}

// An impulse of height A where the window is 1 has power A^2 / (3/8 n) in every bin, n being the
// window's length; against silence only the floor of 1 remains.
TEST(LogSpectralDistanceTest, ImpulseAgainstSilence) {
    for (const int rate : {16000, 48000}) {
        LogSpectralDistance distance(rate);
        const auto length = static_cast<size_t>(rate / 50);
        std::vector<int16_t> impulse(length, 0);
        impulse[length / 2] = 10000;
        const double expected = 10.0 * std::log10(1e8 / (0.375 * rate / 50.0) + 1.0);
        EXPECT_NEAR(distance.FrameDb(impulse, std::vector<int16_t>(length, 0)), expected, 0.01);
    }
}

TEST(LogSpectralDistanceTest, OnlyConcealedSpeechCounts) {
    LogSpectralDistance distance(16000);
    const auto speech = Noise(320, 4000);
    const auto faint = Noise(320, 30);  // 42 dB below speech
    distance.Add(Scaled(speech, 4), speech, false);
    EXPECT_FALSE(distance.MeanDb().has_value());
    distance.Add(Scaled(faint, 4), faint, true);
    distance.Add(speech, std::vector<int16_t>(320, 0), true);
    EXPECT_FALSE(distance.MeanDb().has_value());
    distance.Add(Scaled(speech, 2), speech, true);
    distance.Add(speech, speech, true);
    ASSERT_TRUE(distance.MeanDb().has_value());
    EXPECT_NEAR(*distance.MeanDb(), 3.01, 0.01);
}

}  // namespace
}  // namespace aiplc::tools
