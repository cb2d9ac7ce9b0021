// SPDX-License-Identifier: BSD-2-Clause
//
// One frame of the pipeline: history, decision, prediction limit, post-processing, fallback.

#include <aiplc/aiplc.h>

#include "src/dsp/frame_type.h"

namespace {

using aiplc::dsp::OutputNode;

constexpr int kPredictionLimit = 6;  // frames, 120 ms

bool HasHistory(const StAiPlcChannel *channel) {
    return channel != nullptr && channel->historyRing != nullptr &&
           channel->historyRing->head != nullptr;
}

void ApplyPredictionLimit(StAiPlcChannel &channel, AiPlcPkt &node) {
    channel.predictLimitHit = static_cast<uint16_t>(AiPlcCheckPredictLimit(&channel));
    if (channel.predictLimitHit != 1) return;
    AiPlc16kFadeOut(node.bands[0]);
    node.pktType = PKT_MUTE;
}

}  // namespace

int32_t AiPlcCheckPredictLimit(StAiPlcChannel *channel) {
    if (!HasHistory(channel)) return 0;
    const AiPlcPkt *node = OutputNode(*channel->historyRing);
    for (int i = 0; i < kPredictionLimit; ++i) {
        if (node->pktType != AIPLC_EXTRAPOLATE && node->pktType != PKT_LOST) return 0;
        node = node->prev;
    }
    return 1;
}

int32_t AiPlcProcess(StAiPlcChannel *channel, AiPlcPkt *received, uint16_t count, AiPlcPkt *output,
                     uint16_t *frames) {
    if (!HasHistory(channel) || output == nullptr) return -1;

    if (channel->bufferedFrames < channel->bufferTarget) {
        AiPlcInitBuffering(channel, received, count, output, frames);
        return 0;
    }

    if (received != nullptr) channel->predictLimitHit = 0;
    (void)AiPlcUpdateHisBuffStatus(channel, received, count);
    if (channel->predictLimitHit == 0) channel->lastInferMode = AiPlcAsyncInferJudge(channel);

    AiPlcPkt *node = OutputNode(*channel->historyRing);
    node->isOutput = 1;
    ApplyPredictionLimit(*channel, *node);
    AiPlcPostProc(channel, node);
    AiPlcOpusFallBack(channel, node, output);
    *frames = 1;
    return 0;
}
