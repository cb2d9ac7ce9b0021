// SPDX-License-Identifier: BSD-2-Clause

#include "worker/network/guard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>

namespace aiplc::worker {
namespace {

using Seen = std::array<float, kSeenSamples>;
using Change = std::function<void(Seen &)>;

constexpr size_t kBegin = 960;  // of the gap
constexpr size_t kEnd = 1296;

// The verdict on what a change makes of a tone of this amplitude that has such a gap.
Fault Verdict(float amplitude, const Change &change, size_t end = kEnd) {
    std::array<int16_t, kWindowSamples> window{};
    window.fill(1000);
    std::fill(window.begin() + kSeenBegin + kBegin, window.begin() + kSeenBegin + end, int16_t{0});
    const WindowFacts facts(window);
    Seen known;
    for (size_t i = 0; i < known.size(); ++i)
        known[i] = amplitude * std::sin(0.1F * static_cast<float>(i));
    Seen prediction = known;
    change(prediction);
    MakeHeard(prediction, facts.gap);
    ShortSpectra shortSpectra;
    const auto spectra = std::make_unique<std::array<Spectra, 2>>();
    for (const auto &[samples, into] : {std::pair(&known, 0U), std::pair(&prediction, 1U)}) {
        Seen scaled = *samples;
        for (float &s : scaled)
            s /= facts.scale;
        shortSpectra.Analyse(scaled, 0, (*spectra)[into]);
    }
    return Examine({prediction, (*spectra)[1]}, {known, (*spectra)[0]}, facts);
}

// Adds a tone from begin to end, after a fade of 2 ms at either end.
Change Tone(float amplitude, float frequency, size_t begin = kBegin, size_t end = kEnd) {
    return [=](Seen &samples) {
        for (size_t i = begin; i < end; ++i) {
            const auto inside = static_cast<float>(std::min({i - begin, end - i, size_t{32}}));
            samples[i] += amplitude * inside / 32 * std::sin(frequency * static_cast<float>(i));
        }
    };
}

Change Set(size_t at, float value) {
    return [=](Seen &samples) { samples[at] = value; };
}

}  // namespace

TEST(Guard, FindsWhatMustNotBeHeardAndNothingElse) {
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    const Change same = [](Seen &) {};
    EXPECT_EQ(Verdict(3000, same), Fault::none);
    EXPECT_EQ(Verdict(3000, Tone(7600, 0.1F)), Fault::none);                // +11 dB
    EXPECT_EQ(Verdict(3000, Tone(10400, 0.1F)), Fault::level);              // +13 dB
    EXPECT_EQ(Verdict(3000, Tone(10400, 0.1F, 1500, 1900)), Fault::level);  // behind the gap
    EXPECT_EQ(Verdict(3000, Tone(12000, 0.1F, 200, 900)), Fault::none);  // before it: not its own
    // The last 10 ms are heard in full behind a far side, else in a fade from a half: 11 dB less.
    EXPECT_EQ(Verdict(3000, Tone(20000, 0.1F, 1760, 1920)), Fault::level);
    EXPECT_EQ(Verdict(3000, Tone(20000, 0.1F, 1760, 1920), kSeenSamples), Fault::none);
    EXPECT_EQ(Verdict(3000, Tone(20000, 0.1F, 1440, 1600), kSeenSamples), Fault::level);
    EXPECT_EQ(Verdict(3000, Set(1900, kNan)), Fault::notFinite);
    EXPECT_EQ(Verdict(3000, Set(1900, -std::numeric_limits<float>::infinity())), Fault::notFinite);
    // A quiet hiss above a hum may be speech, a loud one is not.
    EXPECT_EQ(Verdict(3000, Tone(100, 2.0F)), Fault::none);
    EXPECT_EQ(Verdict(3000, Tone(2000, 2.0F)), Fault::band);
    // Silence, exact or not.
    EXPECT_EQ(Verdict(0, same), Fault::none);
    EXPECT_EQ(Verdict(0.4F, same), Fault::none);
    EXPECT_EQ(Verdict(0, Set(1000, 3)), Fault::noise);
    EXPECT_EQ(Verdict(1, Tone(20, 0.1F)), Fault::none);
    EXPECT_EQ(Verdict(1, Tone(200, 0.1F)), Fault::level);
    // Steps: 300 is the tone's own largest. The end of a window is no join.
    EXPECT_EQ(Verdict(3000, Set(kBegin, 1000)), Fault::step);
    EXPECT_EQ(Verdict(3000, Set(kEnd + 4, -2000)), Fault::step);
    EXPECT_EQ(Verdict(3000, Set(kSeenSamples - 2, 2000), kSeenSamples), Fault::none);
}

}  // namespace aiplc::worker
