// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_DEPARTURES_H
#define AIPLC_TOOLS_DEPARTURES_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "tools/input/opus_call.h"

namespace aiplc::tools {

// How a network disturbs packets on their way, beside losing them.
struct Disturbance {
    double jitterMs = 0;          // each packet is delayed by 0 to so much; they stay in order
    double reorderPercent = 0;    // of packets that come behind the next one
    double duplicatePercent = 0;  // of packets that come twice
};

// A packet that leaves.
struct Departure {
    int64_t atUs = 0;  // since the beginning of the call
    size_t packet = 0;
};

// The packets of a call in the order in which they leave, without the lost ones. The same random
// numbers, the same departures, on every machine.
std::vector<Departure> Departures(const OpusCall &call, const std::vector<bool> &lost,
                                  const Disturbance &disturbance, std::mt19937_64 &random);

}  // namespace aiplc::tools

#endif
