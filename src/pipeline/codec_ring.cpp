// SPDX-License-Identifier: BSD-2-Clause
//
// The codec's own output, conditioned as the history's audio is: one pass through the filter bank,
// and the low-pass of narrowband streams.

#include <aiplc/aiplc.h>

#include <cstring>

namespace {

// A failed split or join leaves the codec's audio as it came.
void PassThroughBank(StAiPlcChannel &channel, AiPlcPkt &node) {
    float frame[AIPLC_FRAME_SAMPLES_48K];
    AiPlcShort2Float(node.samples, frame, AIPLC_FRAME_SAMPLES_48K);
    if (AiPlcThreeBandAnalysis(frame, frame, channel.opusAnalysisMem, AIPLC_FRAME_SAMPLES_48K) !=
        0) {
        return;
    }
    AiPlcFloat2Short(frame, node.bands[0], AIPLC_BANDS * AIPLC_BAND_SAMPLES);
    if (AiPlcThreeBandSynthesis(frame, frame, channel.opusSynthesisMem, AIPLC_FRAME_SAMPLES_48K) !=
        0) {
        return;
    }
    AiPlcFloat2Short(frame, node.samples, AIPLC_FRAME_SAMPLES_48K);
}

}  // namespace

void AiPlcMaintainOpusBuff(StAiPlcChannel *channel, uint32_t advance) {
    if (channel == nullptr || channel->opusRing == nullptr || channel->opusRing->head == nullptr) {
        return;
    }
    AiPlcRingList &codec = *channel->opusRing;
    if (advance != 0) {
        codec.head = codec.head->next;
        if (channel->receivedRing != nullptr) {
            (void)AiPlcCopyPkt(codec.head, channel->receivedRing->head);
        }
    }
    AiPlcPkt &node = *codec.head;
    if (channel->is48K == 1) PassThroughBank(*channel, node);

    if (node.bandwidth != AIPLC_BANDWIDTH_NARROWBAND) {
        std::memset(channel->opusLowPassMem16K, 0, sizeof channel->opusLowPassMem16K);
        std::memset(channel->opusLowPassMem48K, 0, sizeof channel->opusLowPassMem48K);
    } else if (channel->is48K == 1) {
        AiPlcFir(node.samples, channel->opusLowPassMem48K, g_aiplcLowPassCoeff48K,
                 AIPLC_FRAME_SAMPLES_48K, AIPLC_LOW_PASS_TAPS_48K);
    } else {
        AiPlcFir(node.samples, channel->opusLowPassMem16K, g_aiplcLowPassCoeff16K,
                 AIPLC_FRAME_SAMPLES_16K, AIPLC_LOW_PASS_TAPS_16K);
    }
}
