// SPDX-License-Identifier: BSD-2-Clause
//
// The frame to play: the history frame or the codec's own, cross-faded at every switch between the
// codec's audio and a prediction.

#include <aiplc/aiplc.h>

#include <cstring>

#include "src/dsp/frame_type.h"
#include "src/platform/platform.h"

namespace {

using aiplc::dsp::IsPredicted;

bool IsCodecAudio(const AiPlcPkt &node) {
    return node.pktType == OPUSPLC_PREDICT || node.pktType == OPUS_DECODED;
}

// The codec's own audio continues into the first received frame after its concealment.
bool NeedsCodecFrame(const AiPlcPkt &node) {
    return node.pktType == OPUSPLC_PREDICT ||
           (node.pktType == OPUS_DECODED && node.prev->pktType == OPUSPLC_PREDICT);
}

int SubstituteCodecFrame(AiPlcPkt &node, const AiPlcPkt &codec) {
    if (node.sampleCount >= codec.sampleCount) {
        const int error =
            aiplc::platform::CopyBounded(node.samples, node.sampleCount * sizeof(int16_t),
                                         codec.samples, codec.sampleCount * sizeof(int16_t));
        if (error != 0) return error;
    }
    node.opusPlcApplied = 1;
    return 0;
}

void CrossFade(const StAiPlcChannel &channel, const int16_t *outgoing, AiPlcPkt &output) {
    if (channel.is48K == 1) {
        AiPlcFuseSmooth(outgoing, output.samples, g_aiplcTriangWin48K, AIPLC_FRAME_SAMPLES_48K);
    } else {
        AiPlcFuseSmooth(outgoing, output.samples, g_aiplcTriangWin16K, AIPLC_FRAME_SAMPLES_16K);
    }
}

}  // namespace

void AiPlcOpusFallBack(StAiPlcChannel *channel, AiPlcPkt *node, AiPlcPkt *output) {
    if (channel == nullptr || node == nullptr || node->samples == nullptr || output == nullptr ||
        output->samples == nullptr || channel->opusRing == nullptr) {
        return;
    }
    const AiPlcPkt *codec = aiplc::dsp::OutputNode(*channel->opusRing);
    if (NeedsCodecFrame(*node)) {
        const int error = SubstituteCodecFrame(*node, *codec);
        if (error != 0) {
            AudAiplcLog("aiplc_process", __LINE__, "memcpy_s opus plc predict failed: %d", error);
            return;
        }
    }
    if (AiPlcCopyPkt(output, node) != 0) {
        std::memset(output->samples, 0, output->sampleCount * sizeof(int16_t));
        return;
    }
    const AiPlcPkt &before = *node->prev;
    if (IsCodecAudio(before) && IsPredicted(*node)) {
        CrossFade(*channel, codec->samples, *output);
        output->fusedIntoPredict = 1;
    } else if (before.pktType == AIPLC_EXTRAPOLATE && node->pktType == OPUSPLC_PREDICT) {
        CrossFade(*channel, channel->is48K == 1 ? channel->nextPredict48K : channel->nextPredict,
                  *output);
        output->fusedFromPredict = 1;
    }
}
