// SPDX-License-Identifier: BSD-2-Clause

#include "measure/pitch.h"

#include <array>
#include <vector>

namespace aiplc::measure {
namespace {

constexpr int kRate = 16000;
constexpr size_t kShortestLag = 40;  // 400 Hz
constexpr size_t kLongestLag = 256;  // 62.5 Hz
constexpr size_t kIntegration = 384;
constexpr double kThreshold = 0.15;
constexpr double kQuietestPower = 10.0;  // squared 16-bit steps

// At 48 kHz the mean of every three samples; what folds down from above 8 kHz has no say in a
// period.
std::vector<float> At16K(std::span<const int16_t> window, int sampleRate) {
    const auto step = static_cast<size_t>(sampleRate / kRate);
    std::vector<float> samples(window.size() / step);
    for (size_t i = 0; i < samples.size(); ++i) {
        int sum = 0;
        for (size_t k = 0; k < step; ++k)
            sum += window[i * step + k];
        samples[i] = static_cast<float>(sum) / static_cast<float>(step);
    }
    return samples;
}

double SquaredDifference(const std::vector<float> &samples, size_t lag) {
    double sum = 0.0;
    for (size_t i = 0; i < kIntegration; ++i) {
        const auto difference = static_cast<double>(samples[i] - samples[i + lag]);
        sum += difference * difference;
    }
    return sum;
}

// Where the parabola through three neighbouring values has its lowest point, -1..1 from the middle.
double LowestPoint(double before, double here, double after) {
    const double bend = before - 2.0 * here + after;
    return bend > 0.0 ? 0.5 * (before - after) / bend : 0.0;
}

}  // namespace

std::optional<double> PitchHz(std::span<const int16_t> window, int sampleRate) {
    const std::vector<float> samples = At16K(window, sampleRate);
    if (samples.size() < kIntegration + kLongestLag) return std::nullopt;
    double power = 0.0;
    for (const float sample : samples)
        power += static_cast<double>(sample * sample);
    if (power < kQuietestPower * static_cast<double>(samples.size())) return std::nullopt;

    // The difference at each lag over its mean at all shorter ones.
    std::array<double, kLongestLag + 1> relative{};
    relative[0] = 1.0;
    double sum = 0.0;
    for (size_t lag = 1; lag <= kLongestLag; ++lag) {
        const double difference = SquaredDifference(samples, lag);
        sum += difference;
        relative[lag] = sum > 0.0 ? difference * static_cast<double>(lag) / sum : 1.0;
    }
    for (size_t lag = kShortestLag; lag < kLongestLag; ++lag) {
        if (relative[lag] >= kThreshold || relative[lag + 1] < relative[lag]) continue;
        const double exact = static_cast<double>(lag) +
                             LowestPoint(relative[lag - 1], relative[lag], relative[lag + 1]);
        return kRate / exact;
    }
    return std::nullopt;
}

}  // namespace aiplc::measure
