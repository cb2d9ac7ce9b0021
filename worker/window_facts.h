// SPDX-License-Identifier: BSD-2-Clause
//
// What the network is told of a window besides its signals.

#ifndef AIPLC_WORKER_WINDOW_FACTS_H
#define AIPLC_WORKER_WINDOW_FACTS_H

#include <cstdint>
#include <span>

#include "holes.h"
#include "network_layout.h"

namespace aiplc::worker {

struct WindowFacts {
    // The window needs a last hole that begins among the samples seen.
    explicit WindowFacts(std::span<const int16_t, kWindowSamples> window) noexcept;

    Hole hole;        // the last one, counted from kSeenBegin
    float scale = 0;  // RMS of the known samples, 4 at least
    Row missing{};    // share of missing samples round each spectrum's centre
    Row open{};       // share of samples from the last hole on there
};

}  // namespace aiplc::worker

#endif
