// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "measure/intelligibility.h"
#include "measure/interruptions.h"
#include "tests/measure/signals.h"

namespace aiplc::measure {
namespace {

constexpr size_t kThreeSeconds = 48000;

double Estoi(const Samples &signal, const Samples &reference, int rate = 16000) {
    double sum = 0.0;
    const auto segments = Intelligibility(reference, rate).Segments(signal);
    for (const auto &segment : segments)
        sum += segment.correlation;
    return sum / static_cast<double>(segments.size());
}

// Noise that swells four times a second.
Samples Speech() {
    Samples speech = Noise(1, 1.0, kThreeSeconds);
    for (size_t i = 0; i < speech.size(); ++i) {
        const double phase = 2.0 * std::numbers::pi * 4.0 * static_cast<double>(i) / 16000.0;
        speech[i] =
            static_cast<int16_t>(std::lrint(0.2 * (0.55 + 0.45 * std::sin(phase)) * speech[i]));
    }
    return speech;
}

// The values are those of training/metrics.py, another implementation with another resampler.
TEST(IntelligibilityTest, KnownSignals) {
    const Samples speech = Speech();
    EXPECT_NEAR(Estoi(speech, speech), 1.0, 1e-6);
    Samples louder = speech;
    for (int16_t &sample : louder)
        sample = static_cast<int16_t>(-3 * sample);
    EXPECT_NEAR(Estoi(louder, speech), 1.0, 1e-3);
    EXPECT_NEAR(Estoi(Sum(speech, Noise(2, 0.05, kThreeSeconds)), speech), 0.7401, 0.005);
    EXPECT_NEAR(Estoi(Sum(speech, Noise(2, 0.2, kThreeSeconds)), speech), 0.2553, 0.005);
    Samples holes = speech;
    for (size_t at = 0; at < holes.size(); at += 3200)
        std::fill_n(holes.begin() + static_cast<std::ptrdiff_t>(at), 800, int16_t{0});
    EXPECT_NEAR(Estoi(holes, speech), 0.7696, 0.005);
    EXPECT_NEAR(Estoi(Samples(kThreeSeconds, 0), speech), 0.0, 1e-6);
}

TEST(IntelligibilityTest, SegmentsLieInSpeechOnly) {
    const Samples speech = Speech();
    EXPECT_TRUE(Intelligibility(Samples(speech.begin(), speech.begin() + 6000), 16000)
                    .Segments(Samples(6000, 0))
                    .empty());
    // A pause of two seconds before it: segments begin where the speech does.
    Samples late(32000, 0);
    late.insert(late.end(), speech.begin(), speech.end());
    const auto segments = Intelligibility(late, 16000).Segments(late);
    ASSERT_FALSE(segments.empty());
    EXPECT_NEAR(segments.front().seconds, 2.0, 0.03);
    EXPECT_LT(segments.back().seconds, 5.0 - 0.38);
}

TEST(InterruptionsTest, CountsSilenceWhereTheReferenceSpeaks) {
    for (const int rate : {16000, 48000}) {
        const auto ms = static_cast<size_t>(rate / 1000);
        Samples reference = Sine(rate, 300, 8000, 1000 * ms);
        // 150 ms are missing at 100 ms, 140 ms at 400 ms.
        Samples signal = reference;
        std::fill_n(&signal[100 * ms], 150 * ms, int16_t{0});
        std::fill_n(&signal[400 * ms], 140 * ms, int16_t{0});
        // The reference pauses from 700 to 900 ms; 20 ms are missing before and after that.
        std::fill_n(&reference[700 * ms], 200 * ms, int16_t{0});
        std::fill_n(&signal[680 * ms], 240 * ms, int16_t{0});
        EXPECT_EQ(Interruptions(signal, reference, rate), std::vector<size_t>{100 * ms});
        EXPECT_TRUE(Interruptions(reference, reference, rate).empty());
        // 80 ms before the pause and 80 ms after it are one interruption.
        std::fill_n(&signal[620 * ms], 360 * ms, int16_t{0});
        EXPECT_EQ(Interruptions(signal, reference, rate),
                  (std::vector<size_t>{100 * ms, 620 * ms}));
    }
}

}  // namespace
}  // namespace aiplc::measure
