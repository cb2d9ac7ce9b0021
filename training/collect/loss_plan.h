// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TRAINING_LOSS_PLAN_H
#define AIPLC_TRAINING_LOSS_PLAN_H

#include <cstddef>
#include <vector>

#include "training/collect/random.h"
#include "training/collect/scene.h"

namespace aiplc::training {

// Which packets of a call are lost, by packet:
// - single: one at a time with 8 to 17 received ones between them, 7.4 %;
// - random: 10 %, each independent of the others;
// - shortBursts, longBursts: 2 to 3 and 4 to 6 at a time with 8 to 20 received ones between them;
// - mixed: a two-state Markov chain (tools/loss/loss_model.h) of 10 to 20 % with bursts of 1.3 to 6
// on
//   average;
// - recorded: as in loss traces of the Internet, 12 % on average. A path is good for seconds with a
//   stray loss and then congested for seconds, in which losses come thick and in short bursts. One
//   rate for all of a call has neither the long clean stretches nor the losses with one or two
//   received frames between them. Gap and burst periods: A. Clark, "Modeling the effects of burst
//   packet loss and recency on subjective voice quality", IP Telephony Workshop 2001; RFC 3611,
//   section 4.7.2;
// - tone, dtmf, music: as single, with two in a row in a fifth of the losses;
// - drawn: one of these that are for speech, with losses of 5 to 40 % in place of mixed.
std::vector<bool> DrawLosses(Scene scene, size_t packets, Random &random);

}  // namespace aiplc::training

#endif
