// SPDX-License-Identifier: BSD-2-Clause

#include "worker/network/guard.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace aiplc::worker {

namespace {

using Samples = std::span<const float>;

// Samples before the gap that count.
constexpr size_t kNear = 640;
// Power is that of 10 ms; the prediction's may be 12 dB above the highest near it, in bands 18 dB.
// Onsets and the decoder's quiet recovery raise levels legitimately; tighter limits would mostly
// reject good predictions.
constexpr size_t kBlock = 160;
constexpr float kLevelMargin = 16;
constexpr float kBandMargin = 64;
// Sound that is hardly heard is allowed: -60 dBFS. In bands also 20 dB below white noise of the
// window's level.
constexpr float kQuietPower = 32 * 32;
constexpr float kQuietShare = 0.01F;
// 0..0.5, ..1, ..2, ..4, ..8 kHz
constexpr std::array<size_t, 6> kBandEdges = {0, 10, 20, 40, 80, kBins};
// Differences between samples that follow each other: twice the largest near the gap, within so
// many samples of its ends.
constexpr float kStepMargin = 2;
constexpr float kQuietStep = 32;
constexpr size_t kJoin = 8;

float LoudestBlock(Samples samples) {
    float loudest = 0;
    for (size_t at = 0; at + kBlock <= samples.size(); at += kBlock / 2) {
        float sum = 0;
        for (const float s : samples.subspan(at, kBlock))
            sum += s * s;
        loudest = std::max(loudest, sum / kBlock);
    }
    return loudest;
}

// Mean power of the bins from begin to end in the loudest of the spectra from first on.
float LoudestSpectrum(const Spectra &spectra, size_t begin, size_t end, size_t first) {
    Row sums{};
    for (size_t bin = begin; bin < end; ++bin) {
        const Row &re = spectra.re[bin];
        const Row &im = spectra.im[bin];
        for (size_t i = 0; i < kColumns; ++i)
            sums.at[i] += re.at[i] * re.at[i] + im.at[i] * im.at[i];
    }
    return *std::max_element(&sums.at[first], &sums.at[kSpectra]) / static_cast<float>(end - begin);
}

float LargestStep(Samples samples) {
    float largest = 0;
    for (size_t i = 1; i < samples.size(); ++i)
        largest = std::max(largest, std::abs(samples[i] - samples[i - 1]));
    return largest;
}

bool AllSilent(Samples samples) {
    return std::ranges::all_of(samples, [](float s) { return std::abs(s) <= 0.5F; });
}

bool BandTooLoud(const Sound &prediction, const Sound &known, const WindowFacts &facts) {
    const float quiet = std::max(kQuietPower / (facts.scale * facts.scale), kQuietShare);
    const size_t first = ShortSpectra::FirstSpectrum(facts.gap.begin);
    const size_t near = ShortSpectra::FirstSpectrum(facts.gap.begin - kNear);
    for (size_t band = 0; band + 1 < kBandEdges.size(); ++band) {
        const size_t begin = kBandEdges[band];
        const size_t end = kBandEdges[band + 1];
        const float expected = LoudestSpectrum(known.spectra, begin, end, near);
        const float power = LoudestSpectrum(prediction.spectra, begin, end, first);
        if (power > kBandMargin * std::max(expected, quiet)) return true;
    }
    return false;
}

bool StepsAtJoins(Samples prediction, Samples near, const Gap &gap) {
    const float most = kStepMargin * std::max(LargestStep(near), kQuietStep);
    for (const size_t join : {gap.begin, gap.end}) {
        if (join == kSeenSamples) break;  // nothing was received behind the gap
        const size_t from = std::max(join - kJoin, gap.begin - 1);
        const size_t to = std::min(join + kJoin, kSeenSamples);
        if (LargestStep(prediction.subspan(from, to - from)) > most) return true;
    }
    return false;
}

}  // namespace

void MakeHeard(std::span<float, kSeenSamples> prediction, const Gap &gap) noexcept {
    if (gap.end != kSeenSamples) return;
    const auto frame = prediction.last<kFrameSamples>();
    for (size_t i = 0; i < kFrameSamples; ++i)
        frame[i] *= 1 - static_cast<float>(i) / kFrameSamples;
}

Fault Examine(const Sound &prediction, const Sound &known, const WindowFacts &facts) noexcept {
    const Samples made = prediction.samples.subspan(facts.gap.begin);
    const Samples near = known.samples.subspan(facts.gap.begin - kNear);
    if (!std::ranges::all_of(made, [](float s) { return std::isfinite(s); }))
        return Fault::notFinite;
    if (AllSilent(near)) return AllSilent(made) ? Fault::none : Fault::noise;
    if (LoudestBlock(made) > kLevelMargin * std::max(LoudestBlock(near), kQuietPower))
        return Fault::level;
    if (BandTooLoud(prediction, known, facts)) return Fault::band;
    return StepsAtJoins(prediction.samples, near, facts.gap) ? Fault::step : Fault::none;
}

}  // namespace aiplc::worker
