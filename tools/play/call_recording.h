// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TOOLS_CALL_RECORDING_H
#define AIPLC_TOOLS_CALL_RECORDING_H

#include <cstdint>
#include <functional>
#include <vector>

#include "tools/play/call_player.h"

namespace aiplc::tools {

// The frames of a call as one receiver played them, from frame 0 on.
struct CallRecording {
    std::vector<int16_t> samples;
    std::vector<AiPlcFrameSource> sources;  // one per frame
    int64_t firstFrame = 0;                 // what the receiver calls the recording's first frame
    bool restarted = false;                 // the sender's clock jumped within the call
    uint64_t requests = 0;                  // to the worker
    uint64_t requestsFailed = 0;            // of those, not answered in time
    uint64_t secondLooks = 0;               // of those, for single lost frames

    [[nodiscard]] int64_t Frames() const { return static_cast<int64_t>(sources.size()); }
};

// Plays the whole call. report: takes the frames played so far. Throws Failure when a worker is
// asked for and does not start, Interrupted, or from the receiver.
CallRecording RecordCall(const CallTimeline &timeline, const AiPlcReceiverOptions &options,
                         const std::function<void(int64_t)> &report);

// A captured call as it would have arrived without losses and jitter on the way: what begins
// before the first frame that its receiver plays is left out. lost: one verdict per packet.
// jitterBufferMs: the receiver's.
OpusCall WithoutJitter(const OpusCall &call, const std::vector<bool> &lost, int jitterBufferMs);

}  // namespace aiplc::tools

#endif
