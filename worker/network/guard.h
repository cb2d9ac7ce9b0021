// SPDX-License-Identifier: BSD-2-Clause
//
// Bounds for predictions that may be heard, whatever the network says. The bounds leave margin: a
// few predictions in a thousand are beyond them on speech that the network was not trained on.

#ifndef AIPLC_WORKER_GUARD_H
#define AIPLC_WORKER_GUARD_H

#include <cstdint>
#include <span>

#include "worker/model/network_layout.h"
#include "worker/network/short_spectra.h"
#include "worker/network/window_facts.h"

namespace aiplc::worker {

// The samples seen, in 16-bit steps, and the spectra of the same divided by WindowFacts::scale.
struct Sound {
    std::span<const float, kSeenSamples> samples;
    const Spectra &spectra;
};

enum class Fault : uint8_t {
    none,
    notFinite,  // a sample is no number
    noise,      // there is sound where all around the gap is silent
    level,      // 10 ms are too loud
    band,       // a band of the spectrum is too loud
    step,       // the prediction steps where the gap begins or ends
};

// Applies the fade with which a prediction is heard: where the gap has no far side, the last frame
// fades out, into the codec's concealment.
void MakeHeard(std::span<float, kSeenSamples> prediction, const Gap &gap) noexcept;

// The first fault of a prediction, as heard, from the last gap on. known is the autoregressive
// prediction; it says what may be expected from 40 ms before the gap on.
Fault Examine(const Sound &prediction, const Sound &known, const WindowFacts &facts) noexcept;

}  // namespace aiplc::worker

#endif
