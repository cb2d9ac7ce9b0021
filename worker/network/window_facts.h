// SPDX-License-Identifier: BSD-2-Clause
//
// Facts about a window that the network gets besides its signals.

#ifndef AIPLC_WORKER_WINDOW_FACTS_H
#define AIPLC_WORKER_WINDOW_FACTS_H

#include <cstdint>
#include <span>

#include "worker/model/network_layout.h"
#include "worker/window/gaps.h"

namespace aiplc::worker {

struct WindowFacts {
    // The window needs a last gap that begins among the samples seen.
    explicit WindowFacts(std::span<const int16_t, kWindowSamples> window) noexcept;

    Gap gap;          // the last one, counted from kSeenBegin
    float scale = 0;  // RMS of the known samples, at least 4 steps of 16 bits
    Row missing{};    // share of missing samples round each spectrum's centre
    Row open{};       // share of samples from the last gap on there
};

}  // namespace aiplc::worker

#endif
