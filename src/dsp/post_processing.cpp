// SPDX-License-Identifier: BSD-2-Clause
//
// From a history frame's bands to its PCM, with the low-pass of narrowband streams. A prediction of
// the frame after it is processed as a continuation, on copies of the stream's filter states.

#include <aiplc/aiplc.h>

#include <cstring>

#include "src/platform/platform.h"

namespace {

bool IsNarrowband(const AiPlcPkt &node) {
    return node.bandwidth == AIPLC_BANDWIDTH_NARROWBAND;
}

void LowPass16K(int16_t *samples, float *state) {
    AiPlcFir(samples, state, g_aiplcLowPassCoeff16K, AIPLC_FRAME_SAMPLES_16K,
             AIPLC_LOW_PASS_TAPS_16K);
}

void LowPass48K(int16_t *samples, float *state) {
    AiPlcFir(samples, state, g_aiplcLowPassCoeff48K, AIPLC_FRAME_SAMPLES_48K,
             AIPLC_LOW_PASS_TAPS_48K);
}

// Joins a band-major frame in place into PCM; silence when the join fails.
void JoinBands(float *frame, float *state, int16_t *samples) {
    if (AiPlcThreeBandSynthesis(frame, frame, state, AIPLC_FRAME_SAMPLES_48K) != 0) {
        std::memset(samples, 0, AIPLC_FRAME_SAMPLES_48K * sizeof(int16_t));
        return;
    }
    AiPlcFloat2Short(frame, samples, AIPLC_FRAME_SAMPLES_48K);
}

// Rebuilds the predicted next frame at 48 kHz; its two upper bands are silent.
void BuildNextPredict48K(StAiPlcChannel &channel, bool narrowband) {
    float synthesis[AIPLC_BANK_TAPS];
    std::memcpy(synthesis, channel.postSynthesisMem, sizeof synthesis);
    float frame[AIPLC_FRAME_SAMPLES_48K] = {};
    AiPlcShort2Float(channel.nextPredict, frame, AIPLC_BAND_SAMPLES);
    JoinBands(frame, synthesis, channel.nextPredict48K);
    if (!narrowband) return;
    float lowPass[AIPLC_LOW_PASS_TAPS_48K];
    std::memcpy(lowPass, channel.postLowPassMem48K, sizeof lowPass);
    LowPass48K(channel.nextPredict48K, lowPass);
}

}  // namespace

void AiPlcPostProc(StAiPlcChannel *channel, AiPlcPkt *node) {
    if (channel->is48K == 1) {
        AiPlcPostProc48K(channel, node);
    } else {
        AiPlcPostProc16K(channel, node);
    }
}

void AiPlcPostProc48K(StAiPlcChannel *channel, AiPlcPkt *node) {
    float frame[AIPLC_FRAME_SAMPLES_48K];
    AiPlcShort2Float(node->bands[0], frame, AIPLC_BANDS * AIPLC_BAND_SAMPLES);
    JoinBands(frame, channel->postSynthesisMem, node->samples);

    const bool narrowband = IsNarrowband(*node);
    if (narrowband) {
        LowPass48K(node->samples, channel->postLowPassMem48K);
    } else {
        std::memset(channel->postLowPassMem48K, 0, sizeof channel->postLowPassMem48K);
    }
    if (node->hasNextPredict == 1) BuildNextPredict48K(*channel, narrowband);
}

void AiPlcPostProc16K(StAiPlcChannel *channel, AiPlcPkt *node) {
    const int error = aiplc::platform::CopyBounded(node->samples, sizeof node->bands[0],
                                                   node->bands[0], sizeof node->bands[0]);
    if (error != 0) {
        AudAiplcLog("aiplc_process", __LINE__, "memcpy_s opus plc predict failed: %d", error);
        return;
    }
    if (!IsNarrowband(*node)) {
        std::memset(channel->postLowPassMem16K, 0, sizeof channel->postLowPassMem16K);
        return;
    }
    LowPass16K(node->samples, channel->postLowPassMem16K);
    if (node->hasNextPredict != 1) return;
    float lowPass[AIPLC_LOW_PASS_TAPS_16K];
    std::memcpy(lowPass, channel->postLowPassMem16K, sizeof lowPass);
    LowPass16K(channel->nextPredict, lowPass);
}
