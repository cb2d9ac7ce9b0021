// SPDX-License-Identifier: BSD-2-Clause

#include "measure/speech_range.h"

namespace aiplc::measure {
namespace {

constexpr double kActiveRange = 1e-4;    // 40 dB
constexpr double kQuietestPower = 10.0;  // squared steps

}  // namespace

double MeanPower(std::span<const int16_t> samples) {
    double sum = 0.0;
    for (const int16_t sample : samples)
        sum += static_cast<double>(sample) * sample;
    return samples.empty() ? 0.0 : sum / static_cast<double>(samples.size());
}

bool SpeechRange::IsSpeech(double power) const {
    return power >= kQuietestPower && power >= m_loudest * kActiveRange;
}

}  // namespace aiplc::measure
