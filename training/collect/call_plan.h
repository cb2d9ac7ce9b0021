// SPDX-License-Identifier: BSD-2-Clause
//
// The calls that training data are taken from, drawn at random.

#ifndef AIPLC_TRAINING_CALL_PLAN_H
#define AIPLC_TRAINING_CALL_PLAN_H

#include <cstdint>
#include <span>
#include <vector>

#include "training/collect/call_windows.h"
#include "training/collect/random.h"
#include "training/collect/scene.h"

namespace aiplc::training {

// Sets the level of the speech (-40..-15 dBFS while active, below clipping) and sometimes adds
// background at 5..30 dB below it. background: at the rate of the speech; may be empty. Returns
// whether it was added.
bool MixScene(std::vector<int16_t> &speech, std::span<const int16_t> background, Random &random);

// Draws encoder, receiver and losses of a call with packets for seconds of audio. In all scenes but
// drawn, encoder and receiver are fixed, the latter at 16 kHz.
CallSetup DrawCall(Scene scene, int speechRate, double seconds, Random &random);

// Answers with share of the target and the rest of the autoregressive answer, from the first gap
// on: what earlier answers of a good model leave in later windows.
CallSetup::Answer MixTruth(double share);

}  // namespace aiplc::training

#endif
