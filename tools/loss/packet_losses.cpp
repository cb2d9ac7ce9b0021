// SPDX-License-Identifier: BSD-2-Clause

#include "tools/loss/packet_losses.h"

#include "tools/shell/failure.h"

namespace aiplc::tools {

PacketLosses DrawLosses(const OpusCall &call, LossModel *model, const std::string &file) {
    PacketLosses losses;
    losses.lost.resize(call.packets.size(), false);
    for (size_t i = 0; i < losses.lost.size(); ++i) {
        const bool drawn = model != nullptr && model->NextLost();
        if (call.packets[i].IsMissing()) {
            ++losses.missing;
        } else if (drawn) {
            losses.lost[i] = true;
            ++losses.dropped;
        }
    }
    if (losses.missing + losses.dropped == losses.lost.size()) {
        throw Failure(file, "no packet of " + std::to_string(losses.lost.size()) +
                                " is left to play; lose fewer");
    }
    return losses;
}

}  // namespace aiplc::tools
