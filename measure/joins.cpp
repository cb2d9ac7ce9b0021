// SPDX-License-Identifier: BSD-2-Clause

#include "measure/joins.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "measure/pitch.h"
#include "measure/speech_range.h"

namespace aiplc::measure {
namespace {

constexpr double kFloorPower = 1.0;

bool HasRoom(std::span<const int16_t> signal, size_t at, int sampleRate) {
    const size_t side = PitchWindow(sampleRate);
    return at >= side && at + side <= signal.size();
}

// Over the differences that end at from..to-1.
double LargestDifference(std::span<const int16_t> signal, size_t from, size_t to) {
    int largest = 0;
    for (size_t i = from; i < to; ++i)
        largest = std::max(largest, std::abs(signal[i] - signal[i - 1]));
    return largest;
}

}  // namespace

std::optional<double> LevelStepDb(std::span<const int16_t> signal, size_t at, int sampleRate) {
    if (!HasRoom(signal, at, sampleRate)) return std::nullopt;
    const auto side = static_cast<size_t>(sampleRate / 100);
    const double before = MeanPower(signal.subspan(at - side, side)) + kFloorPower;
    const double after = MeanPower(signal.subspan(at, side)) + kFloorPower;
    return 10.0 * std::log10(after / before);
}

std::optional<double> PitchStep(std::span<const int16_t> signal, size_t at, int sampleRate) {
    if (!HasRoom(signal, at, sampleRate)) return std::nullopt;
    const size_t side = PitchWindow(sampleRate);
    const std::optional<double> before = PitchHz(signal.subspan(at - side, side), sampleRate);
    if (!before) return std::nullopt;
    const std::optional<double> after = PitchHz(signal.subspan(at, side), sampleRate);
    if (!after) return std::nullopt;
    return 12.0 * std::log2(*after / *before);
}

std::optional<double> ClickDb(std::span<const int16_t> signal, size_t at, int sampleRate) {
    if (!HasRoom(signal, at, sampleRate)) return std::nullopt;
    const auto width = static_cast<size_t>(sampleRate / 1000);
    const size_t side = 5 * width;
    const double inside = LargestDifference(signal, at, at + width);
    const double around = std::max(LargestDifference(signal, at - side, at),
                                   LargestDifference(signal, at + width, at + width + side));
    return std::max(0.0, 20.0 * std::log10((inside + 1.0) / (around + 1.0)));
}

}  // namespace aiplc::measure
