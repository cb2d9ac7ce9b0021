// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_PACKET_LOSSES_H
#define AIPLC_TOOLS_PACKET_LOSSES_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/input/opus_call.h"
#include "tools/loss/loss_model.h"

namespace aiplc::tools {

// Which packets of a call never arrive.
struct PacketLosses {
    std::vector<bool> lost;  // one verdict per packet; those that are missing count as received
    uint64_t missing = 0;    // already lost when the call was recorded
    uint64_t dropped = 0;    // lost by simulation
};

// Draws one verdict per packet; packets that are missing keep their turn in the model. model: null
// loses nothing. Throws Failure naming file when no packet is left.
PacketLosses DrawLosses(const OpusCall &call, LossModel *model, const std::string &file);

}  // namespace aiplc::tools

#endif
