// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>

#include <cstdlib>

#include "src/pipeline/node_counter.h"
#include "src/platform/platform.h"

namespace {

using aiplc::platform::CopyBounded;

size_t SampleBytes(size_t samples) {
    return samples * sizeof(int16_t);
}

}  // namespace

AiPlcPkt *AiPlcCreatePkt(const int16_t *pcm, uint32_t byteCount, uint32_t pktType) {
    AiPlcPkt *node = AiPlcCreatePktSn(pcm, byteCount, pktType, 0, 0);
    if (node != nullptr) node->seqNumber = aiplc::pipeline::NextNodeNumber();
    return node;
}

AiPlcPkt *AiPlcCreatePktSn(const int16_t *pcm, uint32_t byteCount, uint32_t pktType,
                           uint16_t seqNumber, uint32_t bandwidth) {
    if (pcm == nullptr) return nullptr;
    auto *node = static_cast<AiPlcPkt *>(std::calloc(1, sizeof(AiPlcPkt) + size_t{byteCount}));
    if (node == nullptr) return nullptr;
    node->samples = reinterpret_cast<int16_t *>(node + 1);
    if (CopyBounded(node->samples, byteCount, pcm, byteCount) != 0) {
        std::free(node);
        return nullptr;
    }
    node->sampleCount = static_cast<uint16_t>(byteCount / sizeof(int16_t));
    node->pktType = static_cast<AiPlcPktType>(pktType);
    node->seqNumber = seqNumber;
    node->bandwidth = bandwidth;
    return node;
}

int32_t AiPlcCopyPkt(AiPlcPkt *destination, const AiPlcPkt *source) {
    if (destination == nullptr || source == nullptr || destination->samples == nullptr ||
        source->samples == nullptr) {
        return -1;
    }
    int failed = 0;
    if (destination->sampleCount >= source->sampleCount) {
        failed |= CopyBounded(destination->samples, SampleBytes(destination->sampleCount),
                              source->samples, SampleBytes(source->sampleCount));
    }
    for (int band = 0; band < AIPLC_BANDS; ++band) {
        failed |= CopyBounded(destination->bands[band], sizeof destination->bands[band],
                              source->bands[band], sizeof source->bands[band]);
    }
    if (failed != 0) return -6;

    destination->sampleCount = source->sampleCount;
    destination->pktType = source->pktType;
    destination->isOutput = source->isOutput;
    destination->seqNumber = source->seqNumber;
    destination->bandwidth = source->bandwidth;
    destination->hasNextPredict = source->hasNextPredict;
    destination->inferMode = source->inferMode;
    destination->fusedIntoPredict = source->fusedIntoPredict;
    destination->fusedFromPredict = source->fusedFromPredict;
    destination->opusPlcApplied = source->opusPlcApplied;
    destination->inferFailed = source->inferFailed;
    destination->inferTimeMs = source->inferTimeMs;
    return 0;
}

int32_t AiPlcDestroyPkt(AiPlcPkt *node) {
    if (node == nullptr || node->samples == nullptr) return -1;
    std::free(node);
    return 0;
}
