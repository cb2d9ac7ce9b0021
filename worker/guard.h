// SPDX-License-Identifier: BSD-2-Clause
//
// What must not be heard, whatever the network says. The bounds leave margin: a few answers in a
// thousand are beyond them on speech that the network was not trained on.

#ifndef AIPLC_WORKER_GUARD_H
#define AIPLC_WORKER_GUARD_H

#include <cstdint>
#include <span>

#include "network_layout.h"
#include "short_spectra.h"
#include "window_facts.h"

namespace aiplc::worker {

// The samples seen, in 16-bit steps, and the spectra of the same divided by WindowFacts::scale.
struct Sound {
    std::span<const float, kSeenSamples> samples;
    const Spectra &spectra;
};

enum class Fault : uint8_t {
    none,
    notFinite,  // a sample is no number
    noise,      // there is sound where all around the hole is silent
    level,      // 10 ms are too loud
    band,       // a band of the spectrum is too loud
    step,       // the answer steps where the hole begins or ends
};

// Leaves of an answer what is heard: where the hole has no far side, the last frame fades out, into
// the codec's concealment.
void MakeHeard(std::span<float, kSeenSamples> answer, const Hole &hole) noexcept;

// The first fault of an answer, as heard, from the last hole on. known is the autoregressive
// answer; it says what may be expected from 40 ms before the hole on.
Fault Examine(const Sound &answer, const Sound &known, const WindowFacts &facts) noexcept;

}  // namespace aiplc::worker

#endif
