// SPDX-License-Identifier: BSD-2-Clause

#include "src/pipeline/silent_frame.h"

#include <algorithm>
#include <array>

namespace aiplc::pipeline {

void WriteSilentFrame(AiPlcPkt *slot, uint32_t frameSamples, AiPlcPktType type, uint32_t seqNumber,
                      uint32_t bandwidth) {
    static constexpr std::array<int16_t, AIPLC_FRAME_SAMPLES_48K> kSilence{};
    const uint32_t samples = std::min<uint32_t>(frameSamples, kSilence.size());
    AiPlcPkt *silent = AiPlcCreatePktSn(kSilence.data(), samples * uint32_t{sizeof(int16_t)}, type,
                                        static_cast<uint16_t>(seqNumber), bandwidth);
    if (silent == nullptr) return;
    (void)AiPlcCopyPkt(slot, silent);
    (void)AiPlcDestroyPkt(silent);
}

}  // namespace aiplc::pipeline
