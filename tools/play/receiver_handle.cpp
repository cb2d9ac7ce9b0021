// SPDX-License-Identifier: BSD-2-Clause

#include "tools/play/receiver_handle.h"

#include <string>

#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

void Check(int32_t result) {
    if (result != AIPLC_RECEIVER_OK)
        throw Failure(std::string("the receiver failed: ") + AiPlcReceiverResultText(result));
}

void KeepError(void *text, int32_t level, const char *line) {
    if (level == AIPLC_RECEIVER_LOG_ERROR) *static_cast<std::string *>(text) = line;
}

}  // namespace

AiPlcReceiverOptions DefaultReceiver() {
    AiPlcReceiverOptions options;
    AiPlcReceiverDefaults(&options);
    return options;
}

AiPlcReceiverOptions CodecAlone(int decoderComplexity) {
    AiPlcReceiverOptions options = DefaultReceiver();
    options.predictor = AIPLC_PREDICTOR_NONE;
    options.decoderComplexity = decoderComplexity;
    return options;
}

ReceiverHandle::ReceiverHandle(AiPlcReceiverOptions options) : m_samples(options.sampleRate / 50) {
    // Commands report a worker that does not start in their own words, and nothing is logged later.
    options.log = KeepError;
    options.logUserData = &m_error;
    AiPlcReceiver *receiver = nullptr;
    const int32_t result = AiPlcReceiverCreate(&receiver, &options);
    m_receiver.reset(receiver);
    if (result != AIPLC_RECEIVER_OK && !m_error.empty()) throw Failure(m_error);
    Check(result);
}

void ReceiverHandle::Push(std::span<const uint8_t> payload, uint16_t sequence, uint32_t timestamp,
                          int64_t arrivalUs) {
    Check(AiPlcReceiverPush(m_receiver.get(), payload.data(), payload.size(), sequence, timestamp,
                            arrivalUs));
}

bool ReceiverHandle::PushRtp(std::span<const uint8_t> packet, int64_t arrivalUs) {
    const int32_t result =
        AiPlcReceiverPushRtp(m_receiver.get(), packet.data(), packet.size(), arrivalUs);
    if (result == AIPLC_RECEIVER_E_PACKET) return false;
    Check(result);
    return true;
}

const PlayedFrame &ReceiverHandle::Pull() {
    Check(AiPlcReceiverPull(m_receiver.get(), m_samples.data(), m_samples.size()));
    m_frame.structSize = sizeof(AiPlcReceiverFrame);
    Check(AiPlcReceiverLastFrame(m_receiver.get(), &m_frame));
    m_frame.samples = m_samples;
    return m_frame;
}

AiPlcReceiverStatistics ReceiverHandle::Statistics() const {
    AiPlcReceiverStatistics statistics;
    statistics.structSize = sizeof statistics;
    Check(AiPlcReceiverGetStatistics(m_receiver.get(), &statistics));
    return statistics;
}

}  // namespace aiplc::tools
