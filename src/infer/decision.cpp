// SPDX-License-Identifier: BSD-2-Clause
//
// Who fills a lost frame once it reaches the output position: the worker or the codec.

#include <aiplc/aiplc.h>

#include <algorithm>
#include <array>

#include "src/infer/codec_fallback.h"

namespace {

using aiplc::IsSingleLoss;

// The history around the output position. Output runs three frames behind the newest frame.
struct Judged {
    AiPlcPkt *previous;              // played by the call before this one
    std::array<AiPlcPkt *, 4> node;  // output frame first, newest last
};

bool FindJudged(const StAiPlcChannel *channel, Judged &judged) {
    if (channel == nullptr || channel->historyRing == nullptr) {
        return false;
    }
    AiPlcPkt *node = channel->historyRing->head;
    for (size_t i = judged.node.size(); i-- > 0 && node != nullptr; node = node->prev) {
        judged.node[i] = node;
        judged.previous = node->prev;
    }
    return node != nullptr;
}

void CountHoldOffDown(StAiPlcChannel &channel) {
    if (channel.inferHoldOff > 0) {
        --channel.inferHoldOff;
    }
}

void Retype(AiPlcPkt &node, AiPlcPktType type, int32_t mode) {
    node.pktType = type;
    node.inferMode = static_cast<uint16_t>(mode);
}

// A single lost frame straight after a decoded one goes to the codec, which conceals it from intact
// decoder state. The worker takes it when the frame before it is not decoded audio either.
void DecideSingleLoss(StAiPlcChannel *channel, int32_t *mode, int32_t workerMode, int32_t codecMode,
                      size_t windowEnd) {
    Judged judged{};
    if (mode == nullptr || !FindJudged(channel, judged)) {
        return;
    }
    channel->inferStart = judged.node[windowEnd];
    if (judged.previous->pktType != OPUS_DECODED && channel->inferHoldOff <= 0) {
        Retype(*judged.node[0], AIPLC_INTERPOLATE, workerMode);
        *mode = workerMode;
        return;
    }
    Retype(*judged.node[0], OPUSPLC_PREDICT, codecMode);
    CountHoldOffDown(*channel);
    *mode = codecMode;
}

// True when the pattern asks for the worker; a hold-off may still leave the loss to the codec.
bool DecideGap(StAiPlcChannel *channel, int32_t *mode, AiPlcPktType type, int32_t workerMode,
               size_t windowEnd) {
    Judged judged{};
    if (mode == nullptr || !FindJudged(channel, judged)) {
        return false;
    }
    channel->inferStart = judged.node[windowEnd];
    Retype(*judged.node[0], type, workerMode);
    Retype(*judged.node[1], type, workerMode);
    *mode = workerMode;
    return true;
}

// Both ends of the gap are known, or nearly: worth a request even during a hold-off.
void DecideDoubleLoss(StAiPlcChannel *channel, int32_t *mode, int32_t workerMode,
                      size_t windowEnd) {
    if (DecideGap(channel, mode, AIPLC_INTERPOLATE, workerMode, windowEnd)) {
        channel->inferHoldOff = 0;
    }
}

struct Pattern {
    std::array<AiPlcPktType, 4> types;  // output frame first
    AiPlcInferModeHandler handler;
};

constexpr AiPlcPktType kGot = OPUS_DECODED;
constexpr AiPlcPktType kLost = PKT_LOST;
constexpr std::array<Pattern, 8> kPatterns = {{
    {{kLost, kGot, kGot, kGot}, AiPlcHandleInferMode1},
    {{kLost, kGot, kGot, kLost}, AiPlcHandleInferMode1},
    {{kLost, kGot, kLost, kGot}, AiPlcHandleInferMode2},
    {{kLost, kGot, kLost, kLost}, AiPlcHandleInferMode2},
    {{kLost, kLost, kGot, kGot}, AiPlcHandleInferMode3},
    {{kLost, kLost, kGot, kLost}, AiPlcHandleInferMode4},
    {{kLost, kLost, kLost, kGot}, AiPlcHandleInferMode5},
    {{kLost, kLost, kLost, kLost}, AiPlcHandleInferMode5},
}};

// Runs the handler of the pattern in the history, or counts the hold-off down; returns the mode.
int32_t Classify(StAiPlcChannel *channel) {
    Judged judged{};
    if (!FindJudged(channel, judged)) {
        return AIPLC_INFER_NONE;
    }
    for (size_t i = 0; i < judged.node.size(); ++i) {
        channel->judgeNodes[i] = judged.node[i];
        channel->judgeTypes[i] = &judged.node[i]->pktType;
    }
    const AiPlcInferModeHandler handler = AiPlcGetInferModeHandler(channel->judgeTypes);
    int32_t mode = AIPLC_INFER_NONE;
    if (handler == nullptr) {
        CountHoldOffDown(*channel);
        return mode;
    }
    handler(channel, &mode);
    return mode;
}

// Prepares the first decoded frame behind the gap for the request, at 48 kHz. Lost frames have
// silent upper bands and the worker fills the low band only, so the upper bands of that frame fade
// in. The first millisecond of its low band is cleared, because the band filters have not settled
// there; the worker fills it like the gap.
void PrepareFrameBehindGap(StAiPlcChannel &channel, int32_t mode) {
    if (mode == AIPLC_INFER_BURST) {
        return;
    }
    AiPlcPkt &after = *channel.judgeNodes[IsSingleLoss(mode) ? 1 : 2];
    AiPlc16kFadeIn(after.bands[1]);
    AiPlc16kFadeIn(after.bands[2]);
    AiPlcSetZeros(after.bands[0], AIPLC_UNSETTLED_SAMPLES);
}

}  // namespace

void AiPlcHandleInferMode1(StAiPlcChannel *channel, int32_t *mode) {
    DecideSingleLoss(channel, mode, AIPLC_INFER_GAP1_AHEAD2, AIPLC_INFER_GAP1_AHEAD2_OPUSPLC, 2);
}

void AiPlcHandleInferMode2(StAiPlcChannel *channel, int32_t *mode) {
    DecideSingleLoss(channel, mode, AIPLC_INFER_GAP1_AHEAD1, AIPLC_INFER_GAP1_AHEAD1_OPUSPLC, 1);
}

void AiPlcHandleInferMode3(StAiPlcChannel *channel, int32_t *mode) {
    DecideDoubleLoss(channel, mode, AIPLC_INFER_GAP2_AHEAD2, 3);
}

void AiPlcHandleInferMode4(StAiPlcChannel *channel, int32_t *mode) {
    DecideDoubleLoss(channel, mode, AIPLC_INFER_GAP2_AHEAD1, 2);
}

void AiPlcHandleInferMode5(StAiPlcChannel *channel, int32_t *mode) {
    if (DecideGap(channel, mode, AIPLC_EXTRAPOLATE, AIPLC_INFER_BURST, 2) &&
        channel->inferHoldOff > 0) {
        channel->inferHoldOff = aiplc::kHoldOffFrames;
    }
}

AiPlcInferModeHandler AiPlcGetInferModeHandler(AiPlcPktType **types) {
    if (types == nullptr || types[0] == nullptr || *types[0] != PKT_LOST) {
        return nullptr;
    }
    for (const Pattern &pattern : kPatterns) {
        if (std::equal(
                pattern.types.begin(), pattern.types.end(), types,
                [](AiPlcPktType wanted, const AiPlcPktType *type) { return wanted == *type; })) {
            return pattern.handler;
        }
    }
    return nullptr;
}

int32_t AiPlcGetInferMode(StAiPlcChannel *channel) {
    return Classify(channel);
}

int32_t AiPlcAsyncInferJudge(StAiPlcChannel *channel) {
    const int32_t mode = Classify(channel);
    if (mode == AIPLC_INFER_NONE || mode == AIPLC_INFER_GAP1_AHEAD2_OPUSPLC ||
        mode == AIPLC_INFER_GAP1_AHEAD1_OPUSPLC) {
        return mode;
    }
    if (channel->is48K == 1) {
        PrepareFrameBehindGap(*channel, mode);
    }
    if (channel->inferHoldOff <= 0) {
        AiPlcGetInferResult(channel, mode);
    } else {
        aiplc::RetypeForCodec(*channel, mode);
        --channel->inferHoldOff;
    }
    return mode;
}
