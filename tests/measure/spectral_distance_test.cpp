// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <cmath>

#include "measure/log_spectral_distance.h"
#include "measure/mel_cepstral_distance.h"
#include "tests/measure/signals.h"

namespace aiplc::measure {
namespace {

// A frame of 20 ms with an impulse where the window is 1 and one where it is 1/2. The spectrum of
// one impulse of height A is flat: A^2 / (3/8 length) in every bin.
Samples Frame(int rate, int16_t middle, int16_t quarter = 0) {
    Samples frame(static_cast<size_t>(rate / 50), 0);
    frame[frame.size() / 2] = middle;
    frame[frame.size() / 4] = quarter;
    return frame;
}

double MelCepstralDb(int rate, const Samples &frame, const Samples &reference) {
    FrameSpectrum spectrum(rate);
    std::vector<double> power;
    std::vector<double> referencePower;
    spectrum.Power(frame, power);
    spectrum.Power(reference, referencePower);
    return MelCepstralDistance().Db(power, referencePower);
}

TEST(LogSpectralDistanceTest, KnownFrames) {
    for (const int rate : {16000, 48000}) {
        LogSpectralDistance distance(rate);
        const Samples impulse = Frame(rate, 10000);
        EXPECT_EQ(distance.FrameDb(impulse, impulse), 0.0) << rate;
        EXPECT_NEAR(distance.FrameDb(Frame(rate, 20000), impulse), 6.02, 0.01) << rate;
        EXPECT_NEAR(distance.FrameDb(Frame(rate, 0, 10000), impulse), 6.02, 0.01) << rate;
        // An echo half as high: the ripple's log is a cosine series with the rms of
        // 10 / ln 10 * sqrt(2 Li2(1/4)).
        EXPECT_NEAR(distance.FrameDb(Frame(rate, 10000, 10000), impulse), 3.177, 0.01) << rate;
        // Of silence, only the floor of 1 remains.
        const double expected = 10.0 * std::log10(1e8 / (0.375 * rate / 50.0) + 1.0);
        EXPECT_NEAR(distance.FrameDb(impulse, Frame(rate, 0)), expected, 0.01) << rate;
    }
}

TEST(LogSpectralDistanceTest, OnlyConcealedSpeechCounts) {
    LogSpectralDistance distance(16000);
    const Samples speech = Frame(16000, 8000);
    const Samples silence = Frame(16000, 0);
    distance.Add(speech, silence, true);
    EXPECT_FALSE(distance.MeanDb().has_value());
    distance.Add(Frame(16000, 32000), speech, false);
    distance.Add(silence, Frame(16000, 60), true);  // 42 dB below speech
    EXPECT_FALSE(distance.MeanDb().has_value());
    distance.Add(Frame(16000, 16000), speech, true);
    distance.Add(speech, speech, true);
    EXPECT_NEAR(distance.MeanDb().value_or(0.0), 3.01, 0.01);
}

// The levels of flat spectra differ in coefficient 0 only. The other values are those of
// training/metrics.py, which shares no code with this.
TEST(MelCepstralDistanceTest, KnownFrames) {
    for (const int rate : {16000, 48000}) {
        const Samples impulse = Frame(rate, 10000);
        EXPECT_EQ(MelCepstralDb(rate, impulse, impulse), 0.0);
        EXPECT_NEAR(MelCepstralDb(rate, Frame(rate, 20000), impulse), 0.0, 0.01) << rate;
        EXPECT_NEAR(MelCepstralDb(rate, Frame(rate, 10000, 10000), impulse), 0.3672, 0.001) << rate;
    }
    const Samples low = Sum(Sine(16000, 440, 3000, 320), Sine(16000, 2500, 1000, 320));
    const Samples high = Sum(Sine(16000, 700, 2000, 320), Sine(16000, 5000, 1500, 320));
    EXPECT_NEAR(MelCepstralDb(16000, high, low), 40.228, 0.005);
}

}  // namespace
}  // namespace aiplc::measure
