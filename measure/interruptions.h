// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_MEASURE_INTERRUPTIONS_H
#define AIPLC_MEASURE_INTERRUPTIONS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace aiplc::measure {

// Where a signal is silent for at least 150 ms in which its reference speaks: the first sample of
// each such run. Both are looked at in blocks of 10 ms; a block has sound when its power lies in
// the SpeechRange of the reference's blocks. Silence that the reference shares neither counts nor
// ends a run.
std::vector<size_t> Interruptions(std::span<const int16_t> signal,
                                  std::span<const int16_t> reference, int sampleRate);

}  // namespace aiplc::measure

#endif
