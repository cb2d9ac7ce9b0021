// SPDX-License-Identifier: BSD-2-Clause
//
// The calls that training data are taken from, drawn at random.

#ifndef AIPLC_TRAINING_CALL_PLAN_H
#define AIPLC_TRAINING_CALL_PLAN_H

#include <cstdint>
#include <span>
#include <vector>

#include "call_windows.h"
#include "random.h"

namespace aiplc::training {

// Sets the level of the speech (-40..-15 dBFS while active, below clipping) and sometimes adds
// background at 5..30 dB below it. background: at the rate of the speech; may be empty. Returns
// whether it was added.
bool MixScene(std::vector<int16_t> &speech, std::span<const int16_t> background, Random &random);

// What may happen in a call. drawn: anything; the others are fixed conditions for comparisons:
// wideband at 24 kb/s, 20 ms packets, 16 kHz output, and bursts of 2..3, bursts of 4..6, or mixed
// losses of 10 to 20 %.
enum class Scene { drawn, shortBursts, longBursts, mixed };

// Draws encoder, receiver and losses of a call with packets for seconds of audio.
CallSetup DrawCall(Scene scene, int speechRate, double seconds, Random &random);

// Answers with share of the target and the rest of the autoregressive answer, from the first hole
// on: what earlier answers of a good model leave in later windows.
CallSetup::Answer MixTruth(double share);

}  // namespace aiplc::training

#endif
