// SPDX-License-Identifier: BSD-2-Clause
//
// The functions of aiplc/receiver.h. No exception leaves them.

#include <aiplc/aiplc.h>
#include <aiplc/receiver.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/opus_packet.h"
#include "host/receiver.h"
#include "host/redundant_audio.h"
#include "host/rtp_view.h"
#include "receiver/arrival_jitter.h"
#include "receiver/jitter_buffer.h"
#include "receiver/option_check.h"
#include "receiver/rtp_stream.h"

using aiplc::host::OutputFrame;
using aiplc::host::RedundantAudio;
using aiplc::host::RtpPacket;
using aiplc::host::RtpView;
using aiplc::receiver::ArrivalJitter;
using aiplc::receiver::JitterBuffer;
using aiplc::receiver::RtpStream;

namespace {

constexpr uint32_t kPullsPerSecond = 100;

struct Log {
    AiPlcReceiverLogFunc write = nullptr;
    void *userData = nullptr;

    void operator()(AiPlcReceiverLogLevel level, const std::string &text) const {
        if (write != nullptr) write(userData, level, text.c_str());
    }
};

aiplc::host::ReceiverOptions HostOptions(const AiPlcReceiverOptions &options) {
    return {.sampleRate = options.sampleRate,
            .predictor = static_cast<AiPlcPredictor>(options.predictor),
            .modelPath = options.modelPath != nullptr ? options.modelPath : "",
            .useSecondLook = options.useSecondLook == 1,
            .useFec = options.useFec == 1,
            .useLatePackets = options.useLatePackets == 1,
            .expectPauses = options.expectPauses == 1,
            .codecConceals = options.codecConceals == 1,
            .decoderComplexity = options.decoderComplexity};
}

// Runs a function of the host engine and turns what it throws into a result.
template <typename Function>
int32_t Guarded(const Log &log, Function function) noexcept {
    try {
        function();
        return AIPLC_RECEIVER_OK;
    } catch (const std::bad_alloc &) {
        return AIPLC_RECEIVER_E_MEMORY;
    } catch (const aiplc::host::ModelFault &fault) {
        log(AIPLC_RECEIVER_LOG_ERROR, fault.what());
        return AIPLC_RECEIVER_E_MODEL;
    } catch (const std::exception &failure) {
        log(AIPLC_RECEIVER_LOG_ERROR, failure.what());
        return AIPLC_RECEIVER_E_FAILED;
    }
}

// Copies what fits into a record of the caller's, which may be of an older version. False when the
// caller's structSize is not one of any version.
template <typename Record>
bool CopyOut(const Record &from, Record *to) {
    const uint32_t size = to->structSize;
    if (size < 2 * sizeof(uint32_t)) return false;
    std::memcpy(to, &from, std::min<size_t>(size, sizeof(Record)));
    to->structSize = size;
    return true;
}

}  // namespace

struct AiPlcReceiver {
    explicit AiPlcReceiver(const AiPlcReceiverOptions &options)
        : log{options.log, options.logUserData},
          engine(HostOptions(options)),
          setUp(options),
          stream(setUp.payloadType, setUp.redPayloadType),
          jitterBuffer(NewJitterBuffer()) {
        setUp.modelPath = nullptr;  // the caller's memory
    }

    std::optional<JitterBuffer> NewJitterBuffer() {
        if (setUp.jitterBuffer == AIPLC_JITTER_NONE) return std::nullopt;
        return std::make_optional<JitterBuffer>(setUp, engine);
    }

    void Push(const uint8_t *payload, size_t bytes, uint16_t sequence, uint32_t timestamp,
              int64_t arrivalUs) {
        packet.payload.assign(payload, payload + bytes);
        packet.copies.clear();
        Push(sequence, timestamp, arrivalUs);
    }

    void PushRtp(const RtpView &rtp, int64_t arrivalUs) {
        if (rtp.payloadType != setUp.redPayloadType)
            return Push(rtp.payload.data(), rtp.payload.size(), rtp.sequence, rtp.timestamp,
                        arrivalUs);
        // With blocks that do not add up it is a packet that cannot be decoded.
        const auto blocks =
            aiplc::host::ParseRedundantAudio(rtp.payload, setUp.payloadType, setUp.redPayloadType);
        TakeBlocks(blocks.value_or(RedundantAudio{}), packet);
        redundancyBytes += rtp.payload.size() - packet.payload.size();
        Push(rtp.sequence, rtp.timestamp, arrivalUs);
    }

    void Pull(int16_t *samples, size_t count) {
        while (count > 0) {
            if (rest.empty()) {
                if (!jitterBuffer) frame = engine.Pull();
                rest = jitterBuffer ? jitterBuffer->Next(frame) : frame.samples;
            }
            const size_t taken = std::min(count, rest.size());
            samples = std::copy_n(rest.begin(), taken, samples);
            rest = rest.subspan(taken);
            if (jitterBuffer) jitterBuffer->Pulled(taken);
            count -= taken;
        }
    }

    void Reset() {
        std::optional<JitterBuffer> begun = NewJitterBuffer();
        engine.Reset();
        if (begun) jitterBuffer.emplace(std::move(*begun));
        stream = RtpStream(setUp.payloadType, setUp.redPayloadType);
        jitter = {};
        packetsForeign = 0;
        sourceChanges = 0;
        redundancyBytes = 0;
        rest = {};
        frame = {};
    }

    // Pushes the member packet.
    void Push(uint16_t sequence, uint32_t timestamp, int64_t arrivalUs) {
        packet.sequenceNumber = sequence;
        packet.timestamp = timestamp;
        engine.Push(packet);
        if (arrivalUs >= 0) jitter.Add(arrivalUs, timestamp);
        if (!jitterBuffer) return;
        const auto info = aiplc::host::ParseOpusPacket(packet.payload);
        if (info) jitterBuffer->Arrive(timestamp, arrivalUs, info->duration);
    }

    Log log;
    aiplc::host::Receiver engine;
    AiPlcReceiverOptions setUp;
    RtpStream stream;
    std::optional<JitterBuffer> jitterBuffer;
    ArrivalJitter jitter;
    uint64_t packetsForeign = 0;
    uint64_t sourceChanges = 0;
    uint64_t redundancyBytes = 0;   // of payloads, besides the packets' own audio
    RtpPacket packet;               // of the last Push
    OutputFrame frame;              // of the last Pull
    std::span<const int16_t> rest;  // of the frame, not pulled yet
};

void AiPlcReceiverDefaults(AiPlcReceiverOptions *options) {
    if (options == nullptr) return;
    *options = {};
    options->structSize = sizeof *options;
    const aiplc::host::ReceiverOptions usual;
    options->sampleRate = usual.sampleRate;
    options->predictor = usual.predictor;
    options->useSecondLook = usual.useSecondLook ? 1 : 0;
    options->useFec = usual.useFec ? 1 : 0;
    options->useLatePackets = usual.useLatePackets ? 1 : 0;
    options->expectPauses = usual.expectPauses ? 1 : 0;
    options->codecConceals = usual.codecConceals ? 1 : 0;
    options->decoderComplexity = usual.decoderComplexity;
    options->payloadType = -1;
    options->redPayloadType = -1;
    options->jitterBuffer = AIPLC_JITTER_NONE;
    options->maxDelayMs = 500;
}

int32_t AiPlcReceiverCreate(AiPlcReceiver **receiver, const AiPlcReceiverOptions *options) {
    if (receiver == nullptr) return AIPLC_RECEIVER_E_ARGUMENT;
    *receiver = nullptr;
    if (options == nullptr || options->structSize != sizeof *options)
        return AIPLC_RECEIVER_E_ARGUMENT;
    const Log log{options->log, options->logUserData};
    std::string fault;
    const int32_t checked = Guarded(log, [&] { fault = aiplc::receiver::OptionFault(*options); });
    if (checked != AIPLC_RECEIVER_OK) return checked;
    if (!fault.empty()) {
        log(AIPLC_RECEIVER_LOG_ERROR, fault);
        return AIPLC_RECEIVER_E_OPTION;
    }
    const int32_t result = Guarded(log, [&] { *receiver = new AiPlcReceiver(*options); });
    if (result == AIPLC_RECEIVER_OK && options->predictor == AIPLC_PREDICTOR_WORKER &&
        !(*receiver)->engine.PredictorRunning()) {
        log(AIPLC_RECEIVER_LOG_WARNING,
            "the worker did not start; it belongs in x64/ beside this program. The codec conceals "
            "every loss");
    }
    return result;
}

void AiPlcReceiverDestroy(AiPlcReceiver *receiver) {
    delete receiver;
}

int32_t AiPlcReceiverReset(AiPlcReceiver *receiver) {
    if (receiver == nullptr) return AIPLC_RECEIVER_E_ARGUMENT;
    return Guarded(receiver->log, [&] { receiver->Reset(); });
}

int32_t AiPlcReceiverPushRtp(AiPlcReceiver *receiver, const void *packet, size_t bytes,
                             int64_t arrivalUs) {
    if (receiver == nullptr || packet == nullptr) return AIPLC_RECEIVER_E_ARGUMENT;
    const auto view = aiplc::host::ParseRtp({static_cast<const uint8_t *>(packet), bytes});
    const RtpStream::Verdict verdict =
        view ? receiver->stream.Take(*view) : RtpStream::Verdict::foreign;
    if (verdict == RtpStream::Verdict::foreign) {
        ++receiver->packetsForeign;
        return AIPLC_RECEIVER_E_PACKET;
    }
    return Guarded(receiver->log, [&] {
        if (verdict == RtpStream::Verdict::changed) {
            ++receiver->sourceChanges;
            receiver->engine.ExpectNewSource();
            receiver->jitter = {};
            if (receiver->jitterBuffer) receiver->jitterBuffer->ExpectNewSource();
            receiver->log(AIPLC_RECEIVER_LOG_NOTE,
                          "the stream goes on from source " + std::to_string(view->ssrc));
        }
        receiver->PushRtp(*view, arrivalUs);
    });
}

int32_t AiPlcReceiverPush(AiPlcReceiver *receiver, const void *payload, size_t bytes,
                          uint16_t sequenceNumber, uint32_t timestamp, int64_t arrivalUs) {
    if (receiver == nullptr || (payload == nullptr && bytes > 0)) return AIPLC_RECEIVER_E_ARGUMENT;
    return Guarded(receiver->log, [&] {
        receiver->Push(static_cast<const uint8_t *>(payload), bytes, sequenceNumber, timestamp,
                       arrivalUs);
    });
}

int32_t AiPlcReceiverPull(AiPlcReceiver *receiver, int16_t *samples, size_t count) {
    if (receiver == nullptr || samples == nullptr) return AIPLC_RECEIVER_E_ARGUMENT;
    const size_t step = receiver->setUp.sampleRate / kPullsPerSecond;
    if (count == 0 || count % step != 0 || count > receiver->setUp.sampleRate)
        return AIPLC_RECEIVER_E_ARGUMENT;
    const int32_t result = Guarded(receiver->log, [&] { receiver->Pull(samples, count); });
    if (result != AIPLC_RECEIVER_OK) std::fill_n(samples, count, int16_t{0});
    return result;
}

int32_t AiPlcReceiverLastFrame(const AiPlcReceiver *receiver, AiPlcReceiverFrame *frame) {
    if (receiver == nullptr || frame == nullptr) return AIPLC_RECEIVER_E_ARGUMENT;
    const AiPlcReceiverFrame &last = receiver->frame;
    return CopyOut(last, frame) ? AIPLC_RECEIVER_OK : AIPLC_RECEIVER_E_ARGUMENT;
}

int32_t AiPlcReceiverGetStatistics(const AiPlcReceiver *receiver,
                                   AiPlcReceiverStatistics *statistics) {
    if (receiver == nullptr || statistics == nullptr) return AIPLC_RECEIVER_E_ARGUMENT;
    AiPlcReceiverStatistics counted{};
    const int32_t result =
        Guarded(receiver->log, [&] { counted = receiver->engine.GetStatistics(); });
    if (result != AIPLC_RECEIVER_OK) return result;
    counted.packetsForeign = receiver->packetsForeign;
    counted.sourceChanges = receiver->sourceChanges;
    counted.bytesReceived += receiver->redundancyBytes;
    counted.jitter = receiver->jitter.Seconds();
    if (receiver->jitterBuffer) receiver->jitterBuffer->FillIn(counted);
    return CopyOut(counted, statistics) ? AIPLC_RECEIVER_OK : AIPLC_RECEIVER_E_ARGUMENT;
}

uint32_t AiPlcReceiverDelay(const AiPlcReceiver *receiver) {
    if (receiver == nullptr) return 0;
    const uint32_t lookAhead = AIPLC_LOOK_AHEAD_FRAMES * receiver->setUp.sampleRate / 50;
    return receiver->setUp.sampleRate == 48000 ? lookAhead + AIPLC_BANK_DELAY : lookAhead;
}

int32_t AiPlcReceiverPredictorRunning(const AiPlcReceiver *receiver) {
    return receiver != nullptr && receiver->engine.PredictorRunning() ? 1 : 0;
}

const char *AiPlcFrameSourceName(int32_t source) {
    static constexpr std::array<const char *, AIPLC_FRAME_SOURCES> kNames = {
        "startup",      "decoded",    "late",  "fec",   "dtx",  "partial",  "interpolated",
        "extrapolated", "secondLook", "codec", "muted", "lost", "redundant"};
    const bool isKnown = source >= 0 && source < static_cast<int32_t>(kNames.size());
    return isKnown ? kNames.at(static_cast<size_t>(source)) : "unknown";
}

const char *AiPlcReceiverResultText(int32_t result) {
    switch (result) {
        case AIPLC_RECEIVER_OK:
            return "success";
        case AIPLC_RECEIVER_E_ARGUMENT:
            return "an argument is null or has a length that is not allowed";
        case AIPLC_RECEIVER_E_OPTION:
            return "an option is out of its range";
        case AIPLC_RECEIVER_E_MODEL:
            return "the network's weights are missing or damaged";
        case AIPLC_RECEIVER_E_MEMORY:
            return "there is no memory";
        case AIPLC_RECEIVER_E_FAILED:
            return "decoder or channel could not be made";
        case AIPLC_RECEIVER_E_PACKET:
            return "not an RTP packet of this stream";
        default:
            return "unknown result";
    }
}
