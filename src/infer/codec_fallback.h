// SPDX-License-Identifier: BSD-2-Clause
//
// Handing a gap at the output position to the codec, for decision and request.

#ifndef AIPLC_CODEC_FALLBACK_H
#define AIPLC_CODEC_FALLBACK_H

#include <aiplc/aiplc.h>

namespace aiplc {

// Frames kept away from the worker after a failed request: 120 ms.
inline constexpr int32_t kHoldOffFrames = 6;

// The worker's single-loss modes: only the output frame is lost.
inline bool IsSingleLoss(int32_t mode) {
    return mode == AIPLC_INFER_GAP1_AHEAD2 || mode == AIPLC_INFER_GAP1_AHEAD1;
}

// The judged frames that the mode gave to the worker go to the codec.
inline void RetypeForCodec(StAiPlcChannel &channel, int32_t mode) {
    for (size_t i = 0; i < (IsSingleLoss(mode) ? 1U : 2U); ++i) {
        if (channel.judgeNodes[i] != nullptr) {
            channel.judgeNodes[i]->pktType = OPUSPLC_PREDICT;
        }
    }
}

}  // namespace aiplc

#endif
