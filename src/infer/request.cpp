// SPDX-License-Identifier: BSD-2-Clause
//
// One request to the worker, within the frame, and what becomes of its answer.

#include <aiplc/adapter.h>

#include <array>

#include "src/infer/adapter_call.h"
#include "src/infer/codec_fallback.h"
#include "src/platform/platform.h"

namespace {

namespace platform = aiplc::platform;

constexpr char kSourceUnit[] = "AiplcAsyncProcess";

constexpr int kResultTimeoutMs = 16;
constexpr uint16_t kInferArg = 1;

// Results of the adapter's Process other than 0.
constexpr int kAdapterTimeout = 101;
constexpr int kAdapterBusy = 310;

constexpr size_t kFrames = AIPLC_WINDOW_FRAMES;
constexpr size_t kBandBytes = sizeof(int16_t) * AIPLC_BAND_SAMPLES;

using Window = std::array<int16_t, AIPLC_WINDOW_SAMPLES>;

// The window's nodes, oldest first; null where the history ends early.
std::array<AiPlcPkt *, kFrames> WindowNodes(AiPlcPkt *newest) {
    std::array<AiPlcPkt *, kFrames> nodes{};
    for (size_t slot = kFrames; slot-- > 0 && newest != nullptr; newest = newest->prev) {
        nodes[slot] = newest;
    }
    return nodes;
}

int16_t *Slot(Window &window, size_t slot) {
    return window.data() + slot * AIPLC_BAND_SAMPLES;
}

int32_t ReportFailure(int result) {
    switch (result) {
        case kAdapterBusy:
            AudAiplcLog(kSourceUnit, __LINE__, "Last inference has not finished: ret = %d", result);
            return AIPLC_E_BUSY;
        case kAdapterTimeout:
            AudAiplcLog(kSourceUnit, __LINE__, "Worker process timeout: ret = %d", result);
            return AIPLC_E_TIMED_OUT;
        default:
            AudAiplcLog(kSourceUnit, __LINE__, "Aiplc async process failed: ret = %d", result);
            return AIPLC_E_FAILED;
    }
}

// Every frame of the window takes the worker's version of its low band. In a burst the newest frame
// is not judged yet: its prediction waits in nextPredict for the cross-fade out of the burst.
void WriteBack(StAiPlcChannel &channel, int32_t mode, const std::array<AiPlcPkt *, kFrames> &nodes,
               Window &predicted) {
    const bool burst = mode == AIPLC_INFER_BURST;
    for (size_t slot = kFrames; slot-- > 0 && nodes[slot] != nullptr;) {
        AiPlcPkt &node = *nodes[slot];
        const bool setAside = burst && slot == kFrames - 1;
        int16_t *target = setAside ? channel.nextPredict : node.bands[0];
        platform::CopyBounded(target, kBandBytes, Slot(predicted, slot), kBandBytes);
        node.hasNextPredict = burst && slot == kFrames - 2 ? 1 : 0;
    }
}

}  // namespace

int32_t AiPlcAsyncInfer(StAiPlcChannel *channel, const int16_t *audioIn, int16_t *audioOut,
                        uint16_t inferArg) {
    if (channel == nullptr || audioIn == nullptr || audioOut == nullptr ||
        channel->adapter == nullptr) {
        return AIPLC_E_FAILED;
    }
    InoutDetail record{};
    record.inferArg = inferArg;
    const int copiedIn = platform::CopyBounded(record.AudioIn, sizeof(record.AudioIn), audioIn,
                                               sizeof(record.AudioIn));
    if (copiedIn != 0) {
        AudAiplcLog(kSourceUnit, __LINE__, "memcpy_s AudioIn failed: err = %d", copiedIn);
    }

    const uint64_t begin = AiPlcGetTimeUs();
    const int result =
        aiplc::CallAdapter([&] { return channel->adapter->Process(record, kResultTimeoutMs); });
    const uint64_t elapsedUs = AiPlcGetTimeUs() - begin;
    channel->inferTimeMs = static_cast<float>(elapsedUs) / 1000.0F;
    channel->inferFailed = result == 0 ? 0 : 1;
    if (result != 0) {
        return ReportFailure(result);
    }
    const int copiedOut = platform::CopyBounded(audioOut, sizeof(record.AudioOut), record.AudioOut,
                                                sizeof(record.AudioOut));
    if (copiedOut != 0) {
        AudAiplcLog(kSourceUnit, __LINE__, "memcpy_s AudioOut failed: err = %d", copiedOut);
    }
    return 0;
}

void AiPlcGetInferResult(StAiPlcChannel *channel, int32_t mode) {
    if (channel == nullptr || channel->historyRing == nullptr || channel->inferStart == nullptr) {
        return;
    }
    Window input{};
    Window predicted{};
    const auto nodes = WindowNodes(channel->inferStart);
    for (size_t slot = 0; slot < kFrames; ++slot) {
        if (nodes[slot] != nullptr) {
            platform::CopyBounded(Slot(input, slot), kBandBytes, nodes[slot]->bands[0], kBandBytes);
        }
    }
    const int32_t result = AiPlcAsyncInfer(channel, input.data(), predicted.data(), kInferArg);
    if (AiPlcPkt *output = channel->judgeNodes[0]; output != nullptr) {
        output->inferTimeMs = channel->inferTimeMs;
        output->inferFailed = channel->inferFailed;
    }
    if (result != 0) {
        aiplc::RetypeForCodec(*channel, mode);
        channel->inferHoldOff = aiplc::kHoldOffFrames;
        AudAiplcLog(kSourceUnit, __LINE__, "Reset aiplc pkt type to OPUSPLC_PREDICT");
        return;
    }
    WriteBack(*channel, mode, nodes, predicted);
}
