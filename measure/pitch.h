// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_MEASURE_PITCH_H
#define AIPLC_MEASURE_PITCH_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace aiplc::measure {

// Samples that PitchHz looks at: 40 ms.
constexpr size_t PitchWindow(int sampleRate) {
    return static_cast<size_t>(sampleRate / 25);
}

// The fundamental frequency of 40 ms of speech, 62.5 to 400 Hz, by steps 2 to 5 of YIN (de
// Cheveigne & Kawahara, "YIN, a fundamental frequency estimator for speech and music", J. Acoust.
// Soc. Am. 111(4), 2002), with a threshold of 0.15 and 24 ms of integration; nothing where the
// signal is silent or has no period. sampleRate: 16000 or 48000 Hz.
std::optional<double> PitchHz(std::span<const int16_t> window, int sampleRate);

}  // namespace aiplc::measure

#endif
