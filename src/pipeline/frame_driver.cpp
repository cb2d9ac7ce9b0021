// SPDX-License-Identifier: BSD-2-Clause
//
// The host's call once per 20 ms frame.

#include <aiplc/aiplc.h>

#include "src/pipeline/output_area.h"
#include "src/pipeline/packet_records.h"

namespace {

constexpr char kUnit[] = "aiplc_process";
constexpr uint16_t kReceivedMode = 1;
constexpr uint16_t kConcealMode = 3;

// Everything a call needs besides receivedRing, which only the received path needs.
bool IsUsable(const AiPlcHostContext &host, uint16_t stream) {
    const StAiPlcChannel &channel = *host.channel;
    if (stream >= AIPLC_MAX_STREAMS) {
        AudAiplcLog(kUnit, __LINE__, "stream index %u, must be below %d", unsigned{stream},
                    AIPLC_MAX_STREAMS);
        return false;
    }
    if (host.stats == nullptr) {
        AudAiplcLog(kUnit, __LINE__, "stats is null, a statistics record is required");
        return false;
    }
    if (channel.frameSamples == 0 || channel.frameSamples > AIPLC_FRAME_SAMPLES_48K) {
        AudAiplcLog(kUnit, __LINE__, "frameSamples = %u, must be 320 or 960", channel.frameSamples);
        return false;
    }
    if (channel.outputRing == nullptr || channel.inputRing == nullptr ||
        channel.historyRing == nullptr || channel.opusRing == nullptr) {
        AudAiplcLog(kUnit, __LINE__, "channel has no rings, AiPlcAsyncInit must come first");
        return false;
    }
    return true;
}

int32_t AiPlcRunFrame(AiPlcHostContext &host, uint16_t *samples, uint16_t mode, uint16_t index) {
    StAiPlcChannel *channel = host.channel;
    AiPlcHostStream &stream = host.streams[index];
    aiplc::pipeline::CompactOutput(stream, host.stats->sampleRate);
    *samples = 0;
    AiPlcPkt *output = channel->outputRing->head;
    uint16_t frames = 0;

    if (mode == kReceivedMode) {
        if (AiPlcProcess(channel, channel->receivedRing->head, channel->receivedCount, output,
                         &frames) != 0) {
            return 1;
        }
    } else {
        (void)AiPlcProcess(channel, nullptr, 0, output, &frames);
        frames = 1;
    }
    int32_t result = 0;
    for (; frames > 0; --frames, output = output->next) {
        const uint16_t appended = aiplc::pipeline::AppendOutput(stream, *output);
        if (appended != output->sampleCount) result = 1;
        *samples = static_cast<uint16_t>(*samples + appended);
    }
    host.samplesOut += *samples;
    return result;
}

// Has the host's codec conceal one frame into the next codec node. Returns 0 or -1.
int32_t ConcealWithCodec(AiPlcHostContext &host, uint32_t userArg) {
    AiPlcRingList &codec = *host.channel->opusRing;
    codec.head = codec.head->next;
    AiPlcPkt &node = *codec.head;

    AiPlcDecodeRequest request{};
    request.decoderTag = host.decoderTag;
    request.plcFlag = 1;
    request.pcmOut = node.samples;
    ++host.opusPlcRequests;
    if (host.decodeLost == nullptr) {
        AudAiplcLog(kUnit, __LINE__, "decodeLost is null, a concealment callback is required");
        return -1;
    }
    if (host.decodeLost(userArg, &request) != 0) return -1;

    if (request.pcmOutSamples > AIPLC_FRAME_SAMPLES_48K) {
        AudAiplcLog(kUnit, __LINE__, "pcmOutSamples = %u cut to %d",
                    unsigned{request.pcmOutSamples}, AIPLC_FRAME_SAMPLES_48K);
        request.pcmOutSamples = AIPLC_FRAME_SAMPLES_48K;
    }
    node.sampleCount = request.pcmOutSamples;
    node.bandwidth = node.prev->bandwidth;
    return 0;
}

int32_t ApplyLost(AiPlcHostContext &host, uint32_t userArg, uint16_t index) {
    if (ConcealWithCodec(host, userArg) != 0) return -1;
    AiPlcMaintainOpusBuff(host.channel, 0);
    uint16_t samples = 0;
    if (AiPlcRunFrame(host, &samples, kConcealMode, index) != 0) return -1;

    AiPlcHostStats &stats = *host.stats;
    const bool useMain = stats.counterMode == 1 || host.altCounterSelect == 0;
    (useMain ? stats.concealedSamples : stats.concealedSamplesAlt) += samples;
    return 0;
}

int32_t ApplyReceived(AiPlcHostContext &host, uint32_t userArg, uint16_t index) {
    StAiPlcChannel &channel = *host.channel;
    if (channel.receivedRing == nullptr) return -1;
    const aiplc::pipeline::TakenPackets taken =
        aiplc::pipeline::TakePackets(host.streams[index], channel, host.packetCount);
    channel.receivedCount = taken.slots;
    // receivedRing holds frames of earlier calls only: to play one again would be heard as an echo.
    if (!taken.hasFrame) {
        AudAiplcLog(kUnit, __LINE__, "packetCount = %d, but no packet record gave a frame",
                    host.packetCount);
        return ApplyLost(host, userArg, index);
    }
    AiPlcMaintainOpusBuff(&channel, 1);
    uint16_t samples = 0;
    (void)AiPlcRunFrame(host, &samples, kReceivedMode, index);
    return 0;
}

}  // namespace

int32_t AiPlcApply(AiPlcHostContext *host, uint32_t userArg, uint16_t stream) {
    if (host == nullptr || host->channel == nullptr) return -1;
    if (!IsUsable(*host, stream)) return -1;
    const uint32_t available = host->streams[stream].inAvailable;
    if (available == 0 || available % host->channel->frameSamples != 0) {
        return ApplyLost(*host, userArg, stream);
    }
    return ApplyReceived(*host, userArg, stream);
}
