// SPDX-License-Identifier: BSD-2-Clause
//
// A channel's set-up and tear-down: its rings and its worker.

#include <aiplc/adapter.h>

#include <exception>
#include <memory>
#include <new>

#include "src/infer/adapter_call.h"
#include "src/platform/platform.h"

namespace {

namespace platform = aiplc::platform;

constexpr char kSourceUnit[] = "AiplcAsyncProcess";

constexpr uint16_t kShortRing = 8;
constexpr uint16_t kLongRing = 12;
constexpr uint16_t kStartUpFrames = 3;  // 60 ms

// The adapter's strings and map allocate.
std::unique_ptr<AiplcAdapter> NewAdapter() {
    try {
        return std::unique_ptr<AiplcAdapter>(new (std::nothrow) AiplcAdapter);
    } catch (const std::exception &) {
        return nullptr;
    }
}

int RunStep(AiplcAdapterInterface &adapter, int (AiplcAdapterInterface::*step)()) {
    return aiplc::CallAdapter([&] { return (adapter.*step)(); });
}

// 0 with channel.adapter set, or the code of the failed step with the adapter gone again.
int32_t StartWorker(StAiPlcChannel &channel) {
    AudAiplcLog(kSourceUnit, __LINE__, "Initiating worker process...");
    std::unique_ptr<AiplcAdapterInterface> adapter = NewAdapter();
    if (adapter == nullptr) {
        AudAiplcLog(kSourceUnit, __LINE__, "new adapter failed");
        return AIPLC_E_NO_ADAPTER;
    }
    if (const int result = RunStep(*adapter, &AiplcAdapterInterface::Create); result != 0) {
        AudAiplcLog(kSourceUnit, __LINE__, "create adapter failed: ret = %d", result);
        RunStep(*adapter, &AiplcAdapterInterface::Delete);
        return AIPLC_E_NOT_STARTED;
    }
    if (const int result = RunStep(*adapter, &AiplcAdapterInterface::Init); result != 0) {
        AudAiplcLog(kSourceUnit, __LINE__, "init adapter failed: ret =%d", result);
        RunStep(*adapter, &AiplcAdapterInterface::Delete);
        return AIPLC_E_NO_ANSWER;
    }
    channel.adapter = adapter.release();
    return 0;
}

void StopWorker(StAiPlcChannel &channel) {
    const std::unique_ptr<AiplcAdapterInterface> adapter(channel.adapter);
    channel.adapter = nullptr;
    if (const int result = RunStep(*adapter, &AiplcAdapterInterface::Delete); result != 0) {
        AudAiplcLog(kSourceUnit, __LINE__, "AIPLC worker process termination failed: ret = %d",
                    result);
    } else {
        AudAiplcLog(kSourceUnit, __LINE__, "AIPLC worker process has been terminated!");
    }
}

}  // namespace

int32_t AiPlcAsyncInit(StAiPlcChannel *channel, int16_t enable) {
    if (channel == nullptr) {
        return AIPLC_E_INVALID;
    }
    const uint64_t begin = AiPlcGetTimeUs();
    platform::FillBounded(channel, sizeof(*channel), 0, sizeof(*channel));
    channel->frameMs = 20;
    channel->frameSamples = AIPLC_FRAME_SAMPLES_48K;
    channel->bufferedFrames = 0;
    channel->bufferTarget = kStartUpFrames;
    channel->sEnableAIPLC = enable;
    if (const int32_t result = AiPlcInitRingLists(channel); result != 0) {
        return result;
    }
    if (channel->sEnableAIPLC == 1) {
        if (const int32_t result = StartWorker(*channel); result != 0) {
            channel->sEnableAIPLC = 0;
            return result;
        }
    }
    AudAiplcLog(kSourceUnit, __LINE__, "From Init: sEnableAIPLC = %d", channel->sEnableAIPLC);
    const uint64_t elapsedUs = AiPlcGetTimeUs() - begin;
    channel->initTimeMs = static_cast<float>(elapsedUs) / 1000.0F;
    return 0;
}

int32_t AiPlcInitRingLists(StAiPlcChannel *channel) {
    if (channel == nullptr) {
        return AIPLC_E_INVALID;
    }
    const struct {
        AiPlcRingList *&ring;
        uint16_t nodes;
    } plan[] = {
        {channel->outputRing, kShortRing}, {channel->receivedRing, kShortRing},
        {channel->inputRing, kLongRing},   {channel->historyRing, kLongRing},
        {channel->opusRing, kShortRing},
    };
    for (const auto &[ring, nodes] : plan) {
        ring = AiPlcInitRingList(nodes);
        if (ring == nullptr) {
            AiPlcAsyncDestroy(channel);
            return AIPLC_E_NO_RINGS;
        }
    }
    return 0;
}

int32_t AiPlcAsyncDestroy(StAiPlcChannel *channel) {
    if (channel == nullptr) {
        return AIPLC_E_INVALID;
    }
    for (AiPlcRingList **ring : {&channel->outputRing, &channel->receivedRing, &channel->inputRing,
                                 &channel->historyRing, &channel->opusRing}) {
        if (*ring != nullptr) {
            AiPlcDestroyRingList(*ring);
            *ring = nullptr;
        }
    }
    if (channel->sEnableAIPLC == 1 && channel->adapter != nullptr) {
        StopWorker(*channel);
    }
    return 0;
}
