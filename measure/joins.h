// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_MEASURE_JOINS_H
#define AIPLC_MEASURE_JOINS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace aiplc::measure {

// The behaviour of a signal where received and concealed audio meet. at: the first sample behind
// the join. Every function needs 40 ms of the signal on both sides; nothing comes back without.

// Level of the 10 ms behind the join over that of the 10 ms before it, in dB; silence counts as one
// squared 16-bit step.
std::optional<double> LevelStepDb(std::span<const int16_t> signal, size_t at, int sampleRate);

// Pitch of the 40 ms behind the join over that of the 40 ms before it, in semitones; nothing where
// either has none.
std::optional<double> PitchStep(std::span<const int16_t> signal, size_t at, int sampleRate);

// The largest difference between neighbouring samples in the 1 ms from the join on, as far as
// filters may delay it, over the largest one in the 5 ms before and after that, in dB; 0 when it is
// no larger.
std::optional<double> ClickDb(std::span<const int16_t> signal, size_t at, int sampleRate);

}  // namespace aiplc::measure

#endif
